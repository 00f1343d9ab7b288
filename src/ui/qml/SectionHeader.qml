import QtQuick
import QtQuick.Controls

Label {
    leftPadding: 12
    topPadding: 14
    bottomPadding: 4
    font.pixelSize: 11
    font.weight: Font.DemiBold
    opacity: 0.65
}
