import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

ColumnLayout {
    id: view
    required property NimbrellApp app

    // A rate in KiB/s, typed in KiB/s or MiB/s; empty or 0 is no limit.
    component RateField: RowLayout {
        id: field
        property real kib: 0
        signal chosen(real value)
        readonly property bool inMiB: unit.currentIndex === 1
        function commit() { field.chosen(Math.round((Number(number.text) || 0) * (inMiB ? 1024 : 1))) }
        AppTextField {
            id: number
            Layout.preferredWidth: 100
            placeholderText: "No limit"
            validator: IntValidator { bottom: 0; top: 100000000 }
            text: field.kib <= 0 ? "" : String(field.inMiB ? field.kib / 1024 : field.kib)
            onEditingFinished: field.commit()
        }
        AppComboBox {
            id: unit
            Layout.preferredWidth: 90
            model: ["KiB/s", "MiB/s"]
            currentIndex: field.kib > 0 && field.kib % 1024 === 0 ? 1 : 0
            onActivated: field.commit()
        }
    }

    readonly property AutomaticSync automatic: app.syncManager.automatic
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
                    checked: view.automatic.isGlobalSyncEnabled
                    onToggled: view.automatic.isGlobalSyncEnabled = checked
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
                        currentIndex: count > 0 ? indexOfValue(view.automatic.globalSyncIntervalMinutes) : -1
                        onActivated: view.automatic.globalSyncIntervalMinutes = currentValue
                    }
                }
                Label {
                    Layout.fillWidth: true
                    wrapMode: Text.Wrap
                    text: "How often to periodically sync with the cloud when Global Sync is enabled."
                    font.pixelSize: 11
                    color: app.theme.secondary
                }
                AppSwitch {
                    objectName: "pauseOnMetered"
                    Layout.topMargin: 8
                    text: "Pause on Metered Connections"
                    enabled: app.canTellMetered
                    checked: view.automatic.pauseOnMetered
                    onToggled: view.automatic.pauseOnMetered = checked
                }
                Label {
                    Layout.fillWidth: true
                    wrapMode: Text.Wrap
                    text: app.canTellMetered ? "Automatic syncs wait while the connection is metered, as NetworkManager marks it."
                                             : "Needs NetworkManager, which is not running."
                    font.pixelSize: 11
                    color: app.theme.secondary
                }
                AppSwitch {
                    objectName: "pauseOnBattery"
                    text: "Pause on Battery Power"
                    enabled: app.canTellBattery
                    checked: view.automatic.pauseOnBattery
                    onToggled: view.automatic.pauseOnBattery = checked
                }
                Label {
                    Layout.fillWidth: true
                    wrapMode: Text.Wrap
                    text: app.canTellBattery ? "Automatic syncs wait while the computer runs on battery."
                                             : "Needs UPower, which is not running."
                    font.pixelSize: 11
                    color: app.theme.secondary
                }
                AppSwitch {
                    objectName: "limitBandwidth"
                    Layout.topMargin: 8
                    text: "Limit Bandwidth"
                    checked: app.settings.limitBandwidth
                    onToggled: app.settings.limitBandwidth = checked
                }
                GridLayout {
                    visible: app.settings.limitBandwidth
                    columns: 2
                    columnSpacing: 10
                    rowSpacing: 6
                    Label { text: "Upload" }
                    RateField {
                        objectName: "uploadRate"
                        kib: app.settings.uploadKiB
                        onChosen: value => app.settings.uploadKiB = value
                    }
                    Label { text: "Download" }
                    RateField {
                        objectName: "downloadRate"
                        kib: app.settings.downloadKiB
                        onChosen: value => app.settings.downloadKiB = value
                    }
                    Label { text: "Schedule" }
                    AppTextField {
                        objectName: "bandwidthSchedule"
                        Layout.preferredWidth: 280
                        placeholderText: "08:00,512k 19:00,off"
                        text: app.settings.bandwidthSchedule
                        onEditingFinished: app.settings.setBandwidthSchedule(text)
                    }
                }
                Label {
                    objectName: "bandwidthScheduleError"
                    visible: app.settings.limitBandwidth && app.settings.bandwidthScheduleError !== ""
                    Layout.fillWidth: true
                    wrapMode: Text.Wrap
                    text: app.settings.bandwidthScheduleError
                    textFormat: Text.PlainText
                    font.pixelSize: 11
                    color: app.theme.red
                }
                Label {
                    visible: app.settings.limitBandwidth
                    Layout.fillWidth: true
                    wrapMode: Text.Wrap
                    text: "Empty or 0 means no limit. A schedule, in rclone's words, takes the place of both rates: "
                          + "\"08:00,512k 19:00,off\" limits to 512 KiB/s from 08:00 and lifts the limit at 19:00."
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
