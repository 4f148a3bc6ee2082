#pragma once

#include "support/FakeScans.h"

#include <QDeadlineTimer>
#include <QProcess>
#include <QTemporaryDir>

#include <functional>
#include <memory>

struct CliRun {
    int exitCode = -1; // -1 when it crashed or never ended
    QString out;
    QString err;
};

// Runs vellumark-cli with settings of its own, so that a person's preferences don't apply, and with the
// fake reader unless the real one is asked for.
class Cli {
public:
    Cli()
    {
        environment_.insert(QStringLiteral("XDG_CONFIG_HOME"), config_.path());
        environment_.insert(QStringLiteral("VELLUMARK_READER"), fakeReaderProgram());
    }

    // The reader next to vellumark-cli, for real recognition.
    void useRealReader() { environment_.remove(QStringLiteral("VELLUMARK_READER")); }
    QString settingsFile() const { return config_.filePath(QStringLiteral("Vellumark/Vellumark.conf")); }

    std::unique_ptr<QProcess> start(const QStringList &arguments) const
    {
        auto process = std::make_unique<QProcess>();
        process->setProcessEnvironment(environment_);
        process->start(QStringLiteral(VELLUMARK_CLI), arguments);
        process->waitForStarted();
        return process;
    }

    CliRun run(const QStringList &arguments) const { return finish(*start(arguments)); }

    static CliRun finish(QProcess &process)
    {
        if (!process.waitForFinished(deadline)) {
            process.kill();
            process.waitForFinished();
        }
        return { process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError()) };
    }

    // Waits while `process` runs until `done` holds; whether it does.
    static bool waitUntil(QProcess &process, const std::function<bool()> &done)
    {
        const QDeadlineTimer timer(deadline);
        while (!done() && !timer.hasExpired() && process.state() == QProcess::Running)
            process.waitForFinished(100);
        return done();
    }

    // Generous: real reading is slow under the sanitizers, and CTest's own timeout comes first anyway.
    static constexpr int deadline = 600'000;

private:
    QTemporaryDir config_;
    QProcessEnvironment environment_ = QProcessEnvironment::systemEnvironment();
};
