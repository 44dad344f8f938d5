import QtQuick

// A session's transcript: group headers and cards, one delegate per row of the view model.
Column {
    id: rows
    required property var view
    required property var palette_
    spacing: 8

    // A file change card's link brings its file in the turn's changes into sight.
    Connections {
        target: rows.view
        function onRevealRequested(name) { Qt.callLater(rows.reveal, name) }
    }
    function find(item, name) {
        if (item.objectName === name)
            return item
        for (let i = 0; i < item.children.length; ++i) {
            const found = find(item.children[i], name)
            if (found)
                return found
        }
        return null
    }
    function reveal(name) {
        const target = find(rows, name)
        let area = rows.parent
        while (area && area.contentY === undefined)
            area = area.parent
        if (!target || !area)
            return
        const y = target.mapToItem(area.contentItem, 0, 0).y
        area.contentY = Math.max(0, Math.min(y - 20, area.contentHeight - area.height))
    }

    Repeater {
        model: rows.view.rows
        delegate: Loader {
            id: row
            required property var model
            required property string rowType
            x: rowType === "card" && row.model.inGroup ? 16 : 0
            width: rows.width - x
            sourceComponent: rowType === "header" ? headerRow : rowType === "changes" ? changesRow : cardRow
            Component {
                id: headerRow
                TranscriptActivityHeader {
                    view: rows.view
                    blockID: row.model.blockID
                    title: row.model.title
                    symbol: row.model.symbol
                    updatesText: row.model.updatesText
                    accessibilityValue: row.model.accessibilityValue
                    accessibilityID: row.model.accessibilityID
                    chevron: row.model.chevron
                }
            }
            Component {
                id: changesRow
                TurnChangesCard {
                    palette_: rows.palette_
                    view: rows.view
                    turnID: row.model.entryID
                    title: row.model.title
                    summary: row.model.text
                    symbol: row.model.symbol
                    accent: row.model.accent
                    files: row.model.blocks
                }
            }
            Component {
                id: cardRow
                TranscriptCard {
                    palette_: rows.palette_
                    view: rows.view
                    entryID: row.model.entryID
                    title: row.model.title
                    status: row.model.status
                    symbol: row.model.symbol
                    accent: row.model.accent
                    text: row.model.text
                    muted: row.model.muted
                    monospaced: row.model.monospaced
                    toggleLabel: row.model.toggleLabel
                    inGroup: row.model.inGroup
                    blocks: row.model.blocks
                    links: row.model.links
                    images: row.model.images
                    partText: row.model.partText
                    previousPart: row.model.previousPart
                    nextPart: row.model.nextPart
                }
            }
        }
    }
}
