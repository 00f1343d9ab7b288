#pragma once

#include <QFutureWatcher>
#include <QObject>
#include <QPromise>
#include <QThreadPool>

#include <memory>
#include <type_traits>

// Work that would hold up the event loop (walking a tree of files, looking
// up thousands of them) runs on a worker of `pool`; its result comes back to
// `done` on `context`'s thread in one call, unless `context` is gone by then.
// `work` gets copies of what it needs: nothing the main thread goes on using.
// A caller that may ask again before the answer comes drops stale ones.
namespace Background {

template <typename Work, typename Done>
void run(QThreadPool &pool, QObject *context, Work work, Done done)
{
    using Result = std::invoke_result_t<Work &>;
    static_assert(!std::is_void_v<Result>, "the work hands something back");
    auto promise = std::make_shared<QPromise<Result>>();
    auto *watcher = new QFutureWatcher<Result>(context);
    QObject::connect(watcher, &QFutureWatcherBase::finished, context, [watcher, done = std::move(done)]() mutable {
        watcher->deleteLater();
        QFuture<Result> future = watcher->future();
        if (future.resultCount() > 0)
            done(future.takeResult());
    });
    promise->start();
    watcher->setFuture(promise->future());
    pool.start([promise, work = std::move(work)]() mutable {
        promise->addResult(work());
        promise->finish();
    });
}

template <typename Work, typename Done>
void run(QObject *context, Work work, Done done)
{
    run(*QThreadPool::globalInstance(), context, std::move(work), std::move(done));
}

} // namespace Background
