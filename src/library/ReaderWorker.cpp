#include "library/ReaderWorker.h"

#include "core/Cancellation.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char **environ;

namespace ReaderSettings {

std::chrono::milliseconds timeout()
{
    bool ok = false;
    const double seconds = QSettings().value(timeoutKey).toDouble(&ok);
    return std::chrono::milliseconds(qint64((ok && seconds > 0 ? seconds : defaultTimeoutSeconds) * 1000));
}

int memoryLimitMB()
{
    bool ok = false;
    const int megabytes = QSettings().value(memoryLimitKey).toInt(&ok);
    return ok && megabytes > 0 ? megabytes : defaultMemoryLimitMB;
}

QString program()
{
    const QString chosen = qEnvironmentVariable("VELLUMARK_READER");
    if (!chosen.isEmpty())
        return chosen;
    // In a build tree the reader sits beside the programs; installed, in its own folder under libexec.
    const QDir programs(QCoreApplication::applicationDirPath());
    const QString beside = programs.filePath(QStringLiteral("vellumark-reader"));
    const QString installed
        = QDir::cleanPath(programs.filePath(QStringLiteral(VELLUMARK_READER_FROM_BIN "/vellumark-reader")));
    return QFileInfo::exists(beside) || !QFileInfo::exists(installed) ? beside : installed;
}

} // namespace ReaderSettings

namespace {

using namespace std::chrono_literals;
using ReaderProtocol::Kind;
using ReaderProtocol::Message;

constexpr auto firstPause = 250ms;
constexpr auto longestPause = 4s;
constexpr auto startTimeout = 60s;

// The environment with Tesseract's thread limit set (bench/README.md: six times faster on two cores).
std::vector<QByteArray> readerEnvironment()
{
    std::vector<QByteArray> variables;
    for (char **variable = environ; *variable; ++variable) {
        if (std::strncmp(*variable, "OMP_THREAD_LIMIT=", 17) != 0)
            variables.emplace_back(*variable);
    }
    variables.emplace_back("OMP_THREAD_LIMIT=1");
    return variables;
}

} // namespace

ReaderWorker::ReaderWorker(Options options)
    : options_(std::move(options))
{
}

ReaderWorker::~ReaderWorker()
{
    end();
}

pid_t ReaderWorker::processId() const
{
    std::lock_guard lock(processMutex_);
    return pid_;
}

void ReaderWorker::kill()
{
    std::lock_guard lock(processMutex_);
    if (pid_ > 0)
        ::kill(pid_, SIGKILL);
}

void ReaderWorker::end()
{
    {
        std::lock_guard lock(processMutex_);
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) { }
            pid_ = 0;
        }
    }
    if (socket_ >= 0)
        ::close(socket_);
    socket_ = -1;
    frames_ = {};
}

bool ReaderWorker::endedWhileIdle()
{
    std::lock_guard lock(processMutex_);
    if (pid_ <= 0 || ::waitpid(pid_, nullptr, WNOHANG) != pid_)
        return false;
    pid_ = 0;
    return true;
}

void ReaderWorker::waitBeforeStarting(const std::stop_token &stop) const
{
    if (deaths_ == 0)
        return;
    const auto pause = std::min<std::chrono::milliseconds>(firstPause * (1 << std::min(deaths_ - 1, 8)), longestPause);
    std::mutex mutex;
    std::unique_lock lock(mutex);
    std::condition_variable_any().wait_for(lock, stop, pause, [] { return false; });
}

void ReaderWorker::start(const std::stop_token &stop)
{
    waitBeforeStarting(stop);
    throwIfCancelled(stop);

    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw ReaderUnavailable(
            QStringLiteral("The PDF reader couldn't start: ") + QString::fromLocal8Bit(std::strerror(errno)));
    const QByteArray program = QFile::encodeName(options_.program);
    const QByteArray languages = options_.languages.toUtf8();
    const QByteArray memoryLimit = QByteArray::number(options_.memoryLimitMB);
    std::vector<char *> arguments { const_cast<char *>(program.constData()), const_cast<char *>("--languages"),
        const_cast<char *>(languages.constData()), const_cast<char *>("--memory-limit"),
        const_cast<char *>(memoryLimit.constData()) };
    if (options_.rendersOnly)
        arguments.push_back(const_cast<char *>("--renders-only"));
    arguments.push_back(nullptr);
    std::vector<QByteArray> environment = readerEnvironment();
    std::vector<char *> variables;
    for (QByteArray &variable : environment)
        variables.push_back(variable.data());
    variables.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    pid_t pid = 0;
    int spawned = 0;
    {
        std::lock_guard lock(processMutex_);
        spawned = ::posix_spawn(&pid, program.constData(), &actions, nullptr, arguments.data(), variables.data());
        if (spawned == 0) {
            pid_ = pid;
            // A stop that came while it started has found nothing to kill.
            if (stop.stop_requested())
                ::kill(pid_, SIGKILL);
        }
    }
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    if (spawned != 0) {
        ::close(ends[0]);
        throw ReaderUnavailable(QStringLiteral("The PDF reader couldn't start: ") + options_.program
            + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(spawned)));
    }
    socket_ = ends[0];
    frames_ = {};

    Message hello;
    try {
        // Starting reads no file: loading the engine may take longer than the timeout for a page.
        hello = receive(std::max<std::chrono::milliseconds>(options_.timeout, startTimeout));
    } catch (const Ended &) {
        end();
        throwIfCancelled(stop);
        ++deaths_;
        throw ReaderUnavailable(QStringLiteral("The PDF reader ended as it started"));
    } catch (const TimedOut &) {
        end();
        ++deaths_;
        throw ReaderUnavailable(QStringLiteral("The PDF reader didn't start in time"));
    } catch (const ReaderProtocol::ProtocolError &) {
        end();
        ++deaths_;
        throw ReaderUnavailable(QStringLiteral("The PDF reader didn't start properly"));
    }
    if (hello.kind == Kind::unavailable) {
        end();
        throw ReaderUnavailable(hello.text);
    }
    if (hello.kind != Kind::ready) {
        end();
        ++deaths_;
        throw ReaderUnavailable(QStringLiteral("The PDF reader didn't start properly"));
    }
}

bool ReaderWorker::send(const Message &message)
{
    const QByteArray bytes = ReaderProtocol::frame(message);
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t count
            = ::send(socket_, bytes.constData() + written, std::size_t(bytes.size() - written), MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        written += count;
    }
    return true;
}

Message ReaderWorker::receive(std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    char buffer[65536];
    for (;;) {
        if (std::optional<Message> message = frames_.next())
            return *message;
        const auto left
            = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left <= 0ms)
            throw TimedOut();
        pollfd answer { socket_, POLLIN, 0 };
        const int ready = ::poll(&answer, 1, int(std::min<std::chrono::milliseconds::rep>(left.count(), 60'000)));
        if (ready < 0 && errno != EINTR)
            throw Ended();
        if (ready <= 0)
            continue;
        const ssize_t count = ::read(socket_, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR)
            continue;
        // The reader is gone; a frame it had begun is cut short.
        if (count <= 0)
            throw Ended();
        frames_.append(buffer, count);
    }
}

void ReaderWorker::converse(
    const Message &request, const std::stop_token &stop, const std::function<bool(const Message &)> &answered)
{
    const std::stop_callback killOnStop(stop, [this] { kill(); });
    throwIfCancelled(stop);
    if (endedWhileIdle())
        end();
    if (socket_ < 0)
        start(stop);
    if (!send(request)) {
        // It ended between files: a new one gets the file.
        end();
        start(stop);
        if (!send(request)) {
            end();
            ++deaths_;
            throw OCR::Failure(stoppedTheReader);
        }
    }

    try {
        for (;;) {
            const Message answer = receive(options_.timeout);
            if (answer.kind == Kind::failed) {
                deaths_ = 0;
                // A reader that ran out of memory ends after saying so.
                if (answer.text == ReaderProtocol::tooLarge)
                    end();
                throw OCR::Failure(answer.text);
            }
            if (answered(answer)) {
                deaths_ = 0;
                return;
            }
        }
    } catch (const TimedOut &) {
        end();
        ++deaths_;
        throw OCR::Failure(tookTooLong);
    } catch (const Ended &) {
        end();
        throwIfCancelled(stop);
        ++deaths_;
        throw OCR::Failure(stoppedTheReader);
    } catch (const ReaderProtocol::ProtocolError &) {
        end();
        throwIfCancelled(stop);
        ++deaths_;
        throw OCR::Failure(stoppedTheReader);
    } catch (const OCR::Failure &) {
        throw;
    } catch (...) {
        // pageRead threw, or a stop: the reader may be half way through the file.
        end();
        throw;
    }
}

OCR::Result ReaderWorker::recognize(const QString &path, const std::stop_token &stop, const OCR::PageRead &pageRead)
{
    OCR::Result result;
    converse(ReaderProtocol::message(Kind::read, path), stop, [&](const Message &answer) {
        switch (answer.kind) {
        case Kind::hash:
            result.sha256 = answer.text;
            return false;
        case Kind::page: {
            if (answer.index != qint32(result.pages.size()) || answer.count <= answer.index)
                throw ReaderProtocol::ProtocolError("a page out of order");
            const OCR::Page page { answer.text, answer.rotation };
            result.pages.push_back(page);
            if (pageRead)
                pageRead(answer.index, answer.count, page);
            return false;
        }
        case Kind::done:
            return true;
        default:
            throw ReaderProtocol::ProtocolError("an answer out of place");
        }
    });
    return result;
}

ReaderWorker::Rendered ReaderWorker::render(
    const QString &path, int index, int maxPixel, int rotation, const std::stop_token &stop)
{
    Rendered rendered;
    converse({ Kind::render, path, index, maxPixel, rotation, {}, {} }, stop, [&](const Message &answer) {
        if (answer.kind != Kind::image || answer.index != index || answer.image.isNull() || answer.count <= index)
            throw ReaderProtocol::ProtocolError("an answer out of place");
        rendered = { answer.image, answer.count };
        return true;
    });
    return rendered;
}

QList<QSizeF> ReaderWorker::measure(const QString &path, const std::stop_token &stop)
{
    QList<QSizeF> sizes;
    converse(ReaderProtocol::message(Kind::measure, path), stop, [&](const Message &answer) {
        if (answer.kind != Kind::sizes || answer.sizes.isEmpty())
            throw ReaderProtocol::ProtocolError("an answer out of place");
        sizes = answer.sizes;
        return true;
    });
    return sizes;
}
