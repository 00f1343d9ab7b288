#pragma once

#include "engine/RcloneEngine.h"

#include <QEventLoop>
#include <QTimer>

#include <optional>

// Collects the one result of an engine call.
template <typename T>
struct Outcome
{
    std::optional<RcloneResult<T>> result;
    QEventLoop loop;

    RcloneEngine::Done<T> callback()
    {
        return [this](const RcloneResult<T> &r) {
            result = r;
            loop.quit();
        };
    }

    // Runs the event loop until the result is there. (QTest::qWaitFor sleeps
    // between rounds, which would slow down reading a child's output.)
    bool wait(int timeoutMs = 60000)
    {
        if (!result) {
            QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
            loop.exec();
        }
        return result.has_value();
    }
};

// Makes one engine call and waits for its result; a call that gives none in
// time reads as one that could not start.
template <typename T, typename Call>
RcloneResult<T> resultOf(Call call, int timeoutMs = 60000)
{
    Outcome<T> outcome;
    call(outcome.callback());
    if (!outcome.wait(timeoutMs))
        return RcloneError{RcloneError::Kind::launchFailed, 0, QStringLiteral("no result in time")};
    return *outcome.result;
}
