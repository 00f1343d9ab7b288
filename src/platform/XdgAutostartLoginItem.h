#pragma once

#include "platform/LoginItemService.h"

// The XDG autostart entry $XDG_CONFIG_HOME/autostart/org.nimbrell.Nimbrell.desktop,
// which desktops read at login.
class XdgAutostartLoginItem final : public LoginItemService
{
public:
    // `executable`: what the entry starts (the running program, by default).
    explicit XdgAutostartLoginItem(QString executable = {});

    QString entryPath() const;

    bool isEnabled() const override;
    std::optional<QString> registerItem() override;
    std::optional<QString> unregisterItem() override;

private:
    QString m_executable;
};
