#pragma once

#include "platform/LoginItemService.h"

// A login item that can be told to refuse.
class FakeLoginItem final : public LoginItemService
{
public:
    bool enabled = false;
    bool refuse = false;

    bool isEnabled() const override { return enabled; }
    std::optional<QString> registerItem() override
    {
        if (refuse)
            return QStringLiteral("Operation not permitted");
        enabled = true;
        return std::nullopt;
    }
    std::optional<QString> unregisterItem() override
    {
        if (refuse)
            return QStringLiteral("Operation not permitted");
        enabled = false;
        return std::nullopt;
    }
};
