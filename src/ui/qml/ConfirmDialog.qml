import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// A modal question with a title, a message and its buttons: "Cancel" and
// the confirming one (destructive by default), or a single button that
// only closes it. The focus starts on Cancel: Return never deletes.
Dialog {
    id: dialog
    property string message
    property string confirmText: "Delete"
    property string confirmKind: "destructive"
    property string confirmObjectName
    property bool confirmOnly: false
    signal confirmed()

    parent: Overlay.overlay
    anchors.centerIn: parent
    modal: true
    width: 440
    padding: 20
    topPadding: 8
    Overlay.modal: Rectangle { color: Qt.rgba(0, 0, 0, 0.3) }
    onOpened: (confirmOnly ? confirmButton : cancelButton).forceActiveFocus(Qt.TabFocusReason)

    background: SheetBackground {}
    header: Label {
        text: dialog.title
        textFormat: Text.PlainText
        font.pixelSize: 15
        font.weight: Font.DemiBold
        padding: 20
        bottomPadding: 0
        elide: Text.ElideRight
    }
    Label {
        width: dialog.availableWidth
        text: dialog.message
        textFormat: Text.PlainText
        wrapMode: Text.Wrap
    }
    footer: RowLayout {
        spacing: 8
        Item { Layout.fillWidth: true; Layout.leftMargin: 20 }
        AppButton {
            id: cancelButton
            visible: !dialog.confirmOnly
            Layout.bottomMargin: 16
            text: "Cancel"
            onClicked: dialog.reject()
        }
        AppButton {
            id: confirmButton
            objectName: dialog.confirmObjectName
            Layout.rightMargin: 20
            Layout.bottomMargin: 16
            kind: dialog.confirmOnly ? "primary" : dialog.confirmKind
            text: dialog.confirmText
            onClicked: {
                dialog.close()
                if (!dialog.confirmOnly)
                    dialog.confirmed()
            }
        }
    }
}
