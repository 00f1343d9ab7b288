import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// A question rclone asks before a remote is complete, and its answer.
ColumnLayout {
    id: box
    required property var question // {label, help, kind, choices, placeholder}
    required property string answer
    required property NimbrellApp app
    signal answerEdited(string answer)

    spacing: 4
    Label { text: box.question.label || ""; font.weight: Font.DemiBold }
    Label {
        Layout.fillWidth: true
        text: box.question.help || ""
        wrapMode: Text.Wrap
        textFormat: Text.PlainText
        color: box.app.theme.secondary
    }
    AppTextField {
        objectName: "answer"
        visible: box.question.kind !== "choice"
        Layout.fillWidth: true
        echoMode: box.question.kind === "password" ? TextInput.Password : TextInput.Normal
        placeholderText: box.question.placeholder || ""
        text: box.answer
        onTextEdited: box.answerEdited(text)
        Accessible.name: box.question.label || ""
    }
    AppComboBox {
        objectName: "answerChoice"
        visible: box.question.kind === "choice"
        Layout.fillWidth: true
        model: box.question.choices || []
        textRole: "label"
        valueRole: "value"
        currentIndex: Math.max(0, indexOfValue(box.answer))
        onActivated: box.answerEdited(currentValue)
    }
}
