#pragma once

#include "platform/FileEventService.h"

#include <QStringList>

#include <list>

// File events on demand: tests say when a watched tree changed.
class FakeFileEventService final : public FileEventService
{
public:
    struct Stream
    {
        QString path;
        Changes onChange;
    };

    std::unique_ptr<FileWatch> watch(const QString &path, const QStringList &ignored,
                                     Changes onChange) override
    {
        ++m_created;
        lastIgnored = ignored;
        m_streams.push_back({path, std::move(onChange)});
        return std::make_unique<Handle>(*this, std::prev(m_streams.end()));
    }

    // Delivers a batch of changes to every watch of `path`: these paths, or
    // none known.
    void change(const QString &path, const QStringList &changed = {})
    {
        for (const Stream &stream : m_streams) {
            if (stream.path == path && stream.onChange)
                stream.onChange(changed);
        }
    }

    // The paths being watched now, in the order the watches were made.
    QStringList watchedPaths() const
    {
        QStringList paths;
        for (const Stream &stream : m_streams)
            paths.append(stream.path);
        return paths;
    }

    QStringList lastIgnored; // what the latest watch was told to ignore

    // How many watches were ever made.
    int createdCount() const { return m_created; }

private:
    class Handle final : public FileWatch
    {
    public:
        Handle(FakeFileEventService &service, std::list<Stream>::iterator stream) : m_service(service), m_stream(stream) {}
        ~Handle() override { m_service.m_streams.erase(m_stream); }

    private:
        FakeFileEventService &m_service;
        std::list<Stream>::iterator m_stream;
    };

    std::list<Stream> m_streams;
    int m_created = 0;
};
