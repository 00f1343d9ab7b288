import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Nimbrell

// A backend's settings, as its form describes them: the required and basic
// ones, then the advanced ones folded under "Advanced".
ColumnLayout {
    id: fields
    required property RemoteSettingsForm form
    required property NimbrellApp app
    property bool showAdvanced: false
    // The scrolling view it is in: a setting that takes the focus (by Tab,
    // say) is scrolled into sight.
    property Flickable flickable: null

    function reveal(control) {
        if (!flickable || !control.activeFocus)
            return
        const top = control.mapToItem(flickable.contentItem, 0, 0).y - 24
        const bottom = top + control.height + 48
        if (top < flickable.contentY)
            flickable.contentY = Math.max(0, top)
        else if (bottom > flickable.contentY + flickable.height)
            flickable.contentY = bottom - flickable.height
    }

    spacing: 10

    component Field: ColumnLayout {
            id: field
            required property string name
            required property string label
            required property string hint
            required property string help
            required property string placeholder
            required property string kind
            required property var choices
            required property bool exclusive
            required property bool required
            required property bool advanced
            required property string value
            required property bool isSet
            required property int choiceIndex
            required property bool decidesForm

            Layout.fillWidth: true
            spacing: 3
            objectName: "setting-" + name

            Label {
                text: field.label + (field.required ? " *" : "")
                font.weight: Font.DemiBold
                visible: field.kind !== "bool"
            }
            AppTextField {
                objectName: "field-" + field.name
                onActiveFocusChanged: fields.reveal(this)
                visible: field.kind === "text" || field.kind === "password"
                Layout.fillWidth: true
                echoMode: field.kind === "password" ? TextInput.Password : TextInput.Normal
                placeholderText: field.isSet ? "Set – type to replace" : field.placeholder
                text: field.kind === "password" ? "" : field.value
                onTextEdited: fields.form.setValue(field.name, text)
                Accessible.name: field.label
                Accessible.description: field.hint
                ToolTip.text: field.help
                ToolTip.visible: hovered && field.help !== ""
                ToolTip.delay: 600
            }
            // Choices that allow a value of one's own: the text, and a list to pick from.
            RowLayout {
                visible: field.kind === "choice" && !field.exclusive
                Layout.fillWidth: true
                spacing: 4
                AppTextField {
                    id: freeChoice
                    onActiveFocusChanged: fields.reveal(this)
                    objectName: "field-" + field.name
                    Layout.fillWidth: true
                    placeholderText: field.placeholder
                    text: field.value
                    // The provider decides which settings follow: taken once typed.
                    onTextEdited: if (!field.decidesForm) fields.form.setValue(field.name, text)
                    onEditingFinished: if (field.decidesForm) fields.form.setValue(field.name, text)
                    Accessible.name: field.label
                    Accessible.description: field.hint
                    ToolTip.text: field.help
                    ToolTip.visible: hovered && field.help !== ""
                    ToolTip.delay: 600
                }
                AppComboBox {
                    objectName: "choices-" + field.name
                    Layout.preferredWidth: 34
                    displayText: ""
                    model: field.kind === "choice" && !field.exclusive ? field.choices : []
                    textRole: "label"
                    valueRole: "value"
                    popup.width: 380
                    Accessible.name: "Choices for " + field.label
                    onActivated: fields.form.setValue(field.name, currentValue)
                }
            }
            AppComboBox {
                objectName: "field-" + field.name
                onActiveFocusChanged: fields.reveal(this)
                visible: field.kind === "choice" && field.exclusive
                Layout.fillWidth: true
                model: field.kind === "choice" && field.exclusive ? field.choices : []
                textRole: "label"
                valueRole: "value"
                currentIndex: field.choiceIndex
                displayText: currentIndex < 0 ? (field.placeholder !== "" ? field.placeholder : "Choose…") : currentText
                Accessible.name: field.label
                onActivated: fields.form.setValue(field.name, currentValue)
                ToolTip.text: field.help
                ToolTip.visible: hovered && field.help !== ""
                ToolTip.delay: 600
            }
            AppSwitch {
                objectName: "field-" + field.name
                onActiveFocusChanged: fields.reveal(this)
                visible: field.kind === "bool"
                text: field.label
                checked: field.value !== "" ? field.value === "true" : field.placeholder === "true"
                onToggled: fields.form.setValue(field.name, checked ? "true" : "false")
                ToolTip.text: field.help
                ToolTip.visible: hovered && field.help !== ""
                ToolTip.delay: 600
            }
            Label {
                Layout.fillWidth: true
                visible: text !== ""
                text: field.hint
                textFormat: Text.PlainText
                wrapMode: Text.Wrap
                maximumLineCount: 2
                elide: Text.ElideRight
                font.pixelSize: 11
                color: fields.app.theme.secondary
            }
        }

    Repeater {
        model: fields.form
        delegate: Field { visible: !advanced }
    }
    AppButton {
        objectName: "advancedToggle"
        onActiveFocusChanged: fields.reveal(this)
        visible: fields.form.advancedCount > 0
        Layout.topMargin: 4
        text: (fields.showAdvanced ? "Hide Advanced" : "Advanced") + " (" + fields.form.advancedCount + ")"
        onClicked: fields.showAdvanced = !fields.showAdvanced
    }
    // Made only when unfolded: some backends have dozens.
    Repeater {
        model: fields.showAdvanced ? fields.form : null
        delegate: Field { visible: advanced }
    }
}
