#pragma once

#include <QDir>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>

struct ToolRun {
    int exitCode = -1; // -1 when it crashed or never ended
    QString out;
    QString err;
};

// Runs a program to its end, for two minutes at most.
inline ToolRun runTool(const QString &program, const QStringList &arguments,
    const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    if (!process.waitForFinished(120'000)) {
        process.kill();
        process.waitForFinished();
    }
    return { process.exitStatus() == QProcess::NormalExit && process.error() != QProcess::FailedToStart
            ? process.exitCode()
            : -1,
        QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError()) };
}

// The programs' environment with settings of their own (so that a person's preferences don't apply)
// and no reader chosen by VELLUMARK_READER: each program finds its reader as an installed one does.
class ProgramSettings {
public:
    ProgramSettings()
    {
        environment_.insert(QStringLiteral("XDG_CONFIG_HOME"), config_.path());
        environment_.remove(QStringLiteral("VELLUMARK_READER"));
    }

    void set(const QString &key, const QString &value)
    {
        QSettings(config_.filePath(QStringLiteral("Vellumark/Vellumark.conf")), QSettings::IniFormat)
            .setValue(key, value);
    }
    const QProcessEnvironment &environment() const { return environment_; }

private:
    QTemporaryDir config_;
    QProcessEnvironment environment_ = QProcessEnvironment::systemEnvironment();
};

// The build, installed by `cmake --install` into a prefix of its own that goes with the object.
class InstalledTree {
public:
    InstalledTree()
        : install_(runTool(QStringLiteral(CMAKE_COMMAND),
            { QStringLiteral("--install"), QStringLiteral(BUILD_DIR), QStringLiteral("--prefix"), prefix_.path() }))
    {
    }

    bool installed() const { return install_.exitCode == 0; }
    std::string log() const { return QString(install_.out + install_.err).toStdString(); }
    QString path(const QString &relative) const { return prefix_.filePath(relative); }

private:
    QTemporaryDir prefix_;
    ToolRun install_;
};
