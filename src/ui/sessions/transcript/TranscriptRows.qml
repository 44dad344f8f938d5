import QtQuick

// A session's transcript: group headers and cards, one delegate per row of the view model.
Column {
    id: rows
    required property var view
    required property var palette_
    spacing: 8

    Repeater {
        model: rows.view.rows
        delegate: Loader {
            id: row
            required property var model
            required property string rowType
            x: rowType === "card" && row.model.inGroup ? 16 : 0
            width: rows.width - x
            sourceComponent: rowType === "header" ? headerRow : cardRow
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
                }
            }
        }
    }
}
