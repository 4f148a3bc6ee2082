#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <spawn.h>
#include <sys/wait.h>

namespace {

// The wait status of the probe after it confined itself and tried `call`.
int probe(const char *call, const QByteArray &path)
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
    QTemporaryDir folder;
    QFile existing(folder.filePath(QStringLiteral("cache")));
    ASSERT_TRUE(existing.open(QIODevice::WriteOnly));
    for (const char *allowed : { "read", "write" }) {
        const int status = probe(allowed, QFile::encodeName(existing.fileName()));
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << allowed << ": " << status;
    }
    for (const char *forbidden : { "socket", "exec", "ptrace", "fork" }) {
        const int status = probe(forbidden, {});
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSYS) << forbidden << ": " << status;
    }
}

} // namespace
