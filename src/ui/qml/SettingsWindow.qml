import QtQuick
import QtQuick.Controls
import Nimbrell

AppWindow {
    id: window
    title: "Nimbrell Settings"
    width: 560
    height: 520
    minimumWidth: 420
    minimumHeight: 460

    SettingsView {
        app: window.app
        anchors.fill: parent
    }
}
