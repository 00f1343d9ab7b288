#pragma once

#include <QString>

#include <optional>

// Starting the program when the user logs in.
class LoginItemService
{
public:
    virtual ~LoginItemService() = default;

    virtual bool isEnabled() const = 0;
    // Each returns the reason on failure.
    virtual std::optional<QString> registerItem() = 0;
    virtual std::optional<QString> unregisterItem() = 0;
};
