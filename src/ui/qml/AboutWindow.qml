import QtQuick
import QtQuick.Controls
import Nimbrell

// Sized by its content; not resizable.
AppWindow {
    id: window
    title: "About Nimbrell"
    flags: Qt.Dialog
    width: 400
    height: view.implicitHeight + 56
    minimumWidth: width
    maximumWidth: width
    minimumHeight: height
    maximumHeight: height

    AboutView {
        id: view
        app: window.app
        anchors.fill: parent
        anchors.margins: 28
    }
}
