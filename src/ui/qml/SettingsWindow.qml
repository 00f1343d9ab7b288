import QtQuick
import QtQuick.Controls
import Nimbrell

ApplicationWindow {
    id: window
    required property NimbrellApp app
    title: "Nimbrell Settings"
    width: 500
    height: 520
    minimumWidth: 420
    minimumHeight: 460

    SettingsView {
        app: window.app
        anchors.fill: parent
    }
}
