import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// The application's button. `kind`: "normal", "primary" (the one default
// action of a screen or sheet), "destructive" (deletes or aborts) or
// "borderless" (toolbars and inline actions). `iconName` is a symbol name;
// an icon-only button keeps its text for screen readers and its tooltip.
Button {
    id: control
    property string kind: "normal"
    property string iconName
    property string toolTip
    // The text colour of a borderless button (the accent for a link-like one).
    property color tint: palette.buttonText
    property color iconColor: foreground

    readonly property AppTheme theme: ApplicationWindow.window ? ApplicationWindow.window.app.theme : null
    readonly property color red: theme ? theme.red : "#E0332B"
    readonly property color accent: theme ? theme.accent : palette.highlight
    readonly property color foreground: kind === "primary" ? palette.highlightedText
        : kind === "destructive" ? red
        : kind === "borderless" ? tint
        : palette.buttonText
    readonly property color fill: {
        if (kind === "primary")
            return down ? Qt.darker(accent, 1.18) : hovered ? Qt.lighter(accent, 1.1) : accent
        const base = kind === "destructive" ? red : palette.windowText
        const strength = down ? 0.18 : hovered ? 0.11 : kind === "borderless" ? 0 : 0.06
        return Qt.rgba(base.r, base.g, base.b, strength)
    }

    implicitHeight: 30
    // A row short of room must not squeeze a button below its content: a
    // negative content width breaks the layout inside it.
    Layout.minimumWidth: implicitWidth
    leftPadding: display === AbstractButton.IconOnly ? 7 : 12
    rightPadding: display === AbstractButton.IconOnly ? 7 : 12
    topPadding: 4
    bottomPadding: 4
    hoverEnabled: true
    focusPolicy: Qt.StrongFocus
    opacity: enabled ? 1 : 0.45
    Accessible.name: text

    ToolTip.visible: toolTip !== "" && hovered
    ToolTip.text: toolTip
    ToolTip.delay: 600

    contentItem: RowLayout {
        spacing: 6
        Icon {
            visible: control.iconName !== ""
            Layout.alignment: Qt.AlignVCenter
            name: control.iconName
            color: control.iconColor
        }
        Label {
            visible: control.display !== AbstractButton.IconOnly && control.text !== ""
            Layout.alignment: Qt.AlignVCenter
            text: control.text
            textFormat: Text.PlainText
            color: control.foreground
            font.weight: control.kind === "primary" ? Font.DemiBold : Font.Medium
            elide: Text.ElideRight
        }
    }

    background: Rectangle {
        implicitWidth: 30
        implicitHeight: 30
        radius: 7
        color: control.fill
        border.width: control.kind === "normal" ? 1 : 0
        border.color: Qt.rgba(control.palette.windowText.r, control.palette.windowText.g, control.palette.windowText.b, 0.16)
        Behavior on color { ColorAnimation { duration: 90 } }
        FocusRing { target: control }
    }
}
