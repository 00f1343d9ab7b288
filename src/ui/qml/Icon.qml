import QtQuick

// A bundled icon by its symbol name, tinted.
Image {
    id: icon
    property string name
    property color color: palette.windowText
    property int size: 16
    property bool gradient: false

    width: size
    height: size
    sourceSize: Qt.size(size, size)
    source: name === "" ? "" : "image://icon/" + name + "?color=" + encodeURIComponent(color.toString()) // "#aarrggbb" when translucent
                                + (gradient ? "&gradient" : "")
    fillMode: Image.PreserveAspectFit
    smooth: true
}
