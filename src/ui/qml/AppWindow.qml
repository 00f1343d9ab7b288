import QtQuick
import QtQuick.Controls
import Nimbrell

// A window of the application, in the application's palette (which follows
// the desktop, or the appearance chosen with NIMBRELL_APPEARANCE).
ApplicationWindow {
    required property NimbrellApp app

    palette {
        window: app.theme.window
        windowText: app.theme.windowText
        base: app.theme.base
        alternateBase: app.theme.alternateBase
        text: app.theme.text
        button: app.theme.button
        buttonText: app.theme.buttonText
        brightText: app.theme.brightText
        highlight: app.theme.highlight
        highlightedText: app.theme.highlightedText
        light: app.theme.light
        midlight: app.theme.midlight
        mid: app.theme.mid
        dark: app.theme.dark
        shadow: app.theme.shadow
        placeholderText: app.theme.placeholderText
        toolTipBase: app.theme.toolTipBase
        toolTipText: app.theme.toolTipText
        link: app.theme.link
    }
}
