import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts

// The capsule of a session's header: its permission mode, and the menus where asked for.
RowLayout {
    id: summary
    required property var configuration
    required property var palette_
    property bool showsModel: false
    property bool showsEffort: false
    spacing: 6
    Loader {
        active: summary.showsModel
        visible: active
        sourceComponent: SessionModelMenu { configuration: summary.configuration; palette_: summary.palette_ }
    }
    Loader {
        active: summary.showsEffort
        visible: active
        sourceComponent: SessionEffortMenu { compact: false; configuration: summary.configuration; palette_: summary.palette_ }
    }
    SessionPermissionMenu { id: permissionMenu; configuration: summary.configuration; palette_: summary.palette_ }

    function openPermissionMenu() { permissionMenu.clicked() }
}
