#include <QByteArray>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <spawn.h>
#include <sys/wait.h>

namespace {

// The wait status of the probe after it confined itself and tried `call`.
int probe(const char *call, const QByteArray &path = "/etc/hostname")
{
    const char *arguments[] = { CONFINEMENT_PROBE, call, path.constData(), nullptr };
    pid_t pid = 0;
    if (::posix_spawn(&pid, CONFINEMENT_PROBE, nullptr, nullptr, const_cast<char **>(arguments), environ) != 0)
        return -1;
    int status = 0;
    ::waitpid(pid, &status, 0);
    return status;
}

TEST(Confinement, readingGoesOnWritingFailsAndEveryOtherKindOfCallEndsTheProcess)
{
    const int reading = probe("read");
    EXPECT_TRUE(WIFEXITED(reading) && WEXITSTATUS(reading) == 0) << reading;

    QTemporaryDir folder;
    const QString target = folder.filePath(QStringLiteral("cache"));
    QFile file(target);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write("kept") == 4);
    file.close();
    const int writing = probe("write", QFile::encodeName(target));
    EXPECT_TRUE(WIFEXITED(writing) && WEXITSTATUS(writing) == 0) << writing;
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), QByteArray("kept"));
    EXPECT_FALSE(QFile::exists(target + QStringLiteral(".new")));

    // Stopped by the filter.
    for (const char *forbidden : { "socket", "exec", "ptrace", "fork" }) {
        const int status = probe(forbidden);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSYS) << forbidden << ": " << status;
    }
}

} // namespace
