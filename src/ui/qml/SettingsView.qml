import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

ColumnLayout {
    id: view
    required property NimbrellApp app
    readonly property SyncManager manager: app.syncManager
    spacing: 0

    Component.onCompleted: app.settings.loadVersion()

    TabBar {
        Layout.fillWidth: true
        TabButton {
            text: "General"
            icon.source: "image://icon/gearshape?color=" + encodeURIComponent(palette.buttonText.toString())
        }
    }

    ColumnLayout {
        Layout.fillWidth: true
        Layout.margins: 20
        spacing: 16

        SettingsSection {
            app: view.app
            title: "General"
            Layout.fillWidth: true
            ColumnLayout {
                width: parent.width
                AppSwitch {
                    objectName: "launchAtLogin"
                    text: "Launch Nimbrell at Login"
                    checked: app.settings.launchAtLogin
                    onToggled: app.settings.launchAtLogin = checked
                }
                Label {
                    Layout.fillWidth: true
                    wrapMode: Text.Wrap
                    text: "Automatically start Nimbrell when you log in."
                    font.pixelSize: 11
                    color: app.theme.secondary
                }
                AppSwitch {
                    objectName: "showNotifications"
                    text: "Show Notifications"
                    checked: app.settings.showNotifications
                    onToggled: app.settings.showNotifications = checked
                }
                Label {
                    Layout.fillWidth: true
                    wrapMode: Text.Wrap
                    text: "Tell me when a sync fails, when it recovers, and when files had conflicting changes."
                    font.pixelSize: 11
                    color: app.theme.secondary
                }
            }
        }

        SettingsSection {
            app: view.app
            title: "Sync Options"
            Layout.fillWidth: true
            ColumnLayout {
                width: parent.width
                AppSwitch {
                    objectName: "globalSync"
                    text: "Enable Global Sync"
                    checked: view.manager.isGlobalSyncEnabled
                    onToggled: view.manager.isGlobalSyncEnabled = checked
                }
                Label {
                    Layout.fillWidth: true
                    wrapMode: Text.Wrap
                    text: "When disabled, all sync operations are paused and file watching is stopped."
                    font.pixelSize: 11
                    color: app.theme.secondary
                }
                RowLayout {
                    Layout.topMargin: 8
                    Label { text: "Sync Interval" }
                    AppComboBox {
                        objectName: "syncInterval"
                        Layout.preferredWidth: 160
                        model: app.settings.intervalChoices
                        textRole: "label"
                        valueRole: "minutes"
                        // (count: look again once the choices are there)
                        currentIndex: count > 0 ? indexOfValue(view.manager.globalSyncIntervalMinutes) : -1
                        onActivated: view.manager.globalSyncIntervalMinutes = currentValue
                    }
                }
                Label {
                    Layout.fillWidth: true
                    wrapMode: Text.Wrap
                    text: "How often to periodically sync with the cloud when Global Sync is enabled."
                    font.pixelSize: 11
                    color: app.theme.secondary
                }
            }
        }

        SettingsSection {
            app: view.app
            title: "Engine Information"
            Layout.fillWidth: true
            RowLayout {
                width: parent.width
                Label { text: "Rclone Version:" }
                Label {
                    objectName: "rcloneVersion"
                    Layout.fillWidth: true
                    text: app.settings.rcloneVersion
                    textFormat: Text.PlainText
                    elide: Text.ElideRight
                    color: app.theme.secondary
                }
            }
        }
    }
    Item { Layout.fillHeight: true }
}
