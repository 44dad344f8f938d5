import QtQuick
import QtQuick.Controls
import QtQuick.Controls.impl
import QtQuick.Layouts

// One block of the usage sheet, row by row as its view model lists them.
Column {
    id: rows
    required property var model_
    required property var texts
    required property var palette_
    spacing: 8

    Repeater {
        model: rows.model_
        delegate: Loader {
            id: row
            required property var model
            required property string rowType
            width: rows.width
            sourceComponent: ({
                heading: heading, line: line, caption: caption, notice: notice, bucket: bucket,
                bar: bar, reset: reset, value: value, divider: divider
            })[rowType]
            Component {
                id: heading
                RowLayout {
                    Label { text: row.model.text; font.bold: true; font.pointSize: 12 }
                    BusyIndicator { visible: row.model.busy; running: visible; implicitWidth: 18; implicitHeight: 18 }
                    Item { Layout.fillWidth: true }
                }
            }
            Component {
                id: line
                Label { text: row.model.text; textFormat: Text.PlainText; wrapMode: Text.Wrap }
            }
            Component {
                id: caption
                Label { text: row.model.text; textFormat: Text.PlainText; wrapMode: Text.Wrap; font.pointSize: 8; opacity: 0.7 }
            }
            Component {
                id: notice
                Label {
                    text: row.model.text
                    textFormat: Text.PlainText
                    wrapMode: Text.Wrap
                    color: rows.palette_.color(row.model.tint)
                    leftPadding: 22
                    IconImage {
                        y: 2
                        name: rows.texts.noticeSymbol
                        color: parent.color
                        sourceSize: Qt.size(16, 16)
                    }
                }
            }
            Component {
                id: bucket
                RowLayout {
                    Label { text: row.model.text; textFormat: Text.PlainText; font.bold: true; elide: Text.ElideRight; Layout.fillWidth: true }
                    Label { text: row.model.detail; textFormat: Text.PlainText; font.pointSize: 8; opacity: 0.7 }
                }
            }
            Component {
                id: bar
                UsagePercentageBar {
                    title: row.model.text
                    shareText: row.model.detail
                    amount: row.model.amount
                    tint: rows.palette_.color(row.model.tint)
                    accessibleValue: row.model.accessibleValue
                }
            }
            Component {
                id: reset
                Label {
                    text: row.model.text
                    textFormat: Text.PlainText
                    wrapMode: Text.Wrap
                    font.pointSize: 9
                    color: row.model.tint !== "" ? rows.palette_.color(row.model.tint) : palette.windowText
                    opacity: row.model.tint !== "" ? 1 : 0.7
                }
            }
            Component {
                id: value
                RowLayout {
                    Label { text: row.model.text; textFormat: Text.PlainText; opacity: 0.7; Layout.fillWidth: true; elide: Text.ElideRight }
                    Label { text: row.model.detail; textFormat: Text.PlainText }
                }
            }
            Component {
                id: divider
                Rectangle { height: 1; color: palette.mid }
            }
        }
    }
}
