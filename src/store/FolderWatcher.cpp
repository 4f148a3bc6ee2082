#include "store/FolderWatcher.h"

#include "store/FolderScan.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <sys/inotify.h>
#include <unistd.h>

namespace {
constexpr std::uint32_t eventMask = IN_CREATE | IN_DELETE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO
    | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

// A PDF, or something without an extension such as a folder: what may change the list of scans.
bool isRelevant(const QString &path)
{
    const QString suffix = QFileInfo(path).suffix();
    return suffix.isEmpty() || suffix.compare(QLatin1String("pdf"), Qt::CaseInsensitive) == 0;
}
} // namespace

FolderWatcher::FolderWatcher(const QString &folder, std::function<void()> onChange, QObject *parent)
    : QObject(parent)
    , folder_(QDir(folder).absolutePath())
    , onChange_(std::move(onChange))
{
    batch_.setSingleShot(true);
    batch_.setInterval(1500);
    connect(&batch_, &QTimer::timeout, this, [this] { endBatch(); });

    fd_ = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (fd_ < 0)
        return;
    notifier_ = std::make_unique<QSocketNotifier>(fd_, QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, [this] { readEvents(); });
    watchTree(folder_);
}

FolderWatcher::~FolderWatcher()
{
    // The notifier must let go of the descriptor before it is closed.
    notifier_.reset();
    if (fd_ >= 0)
        ::close(fd_);
}

void FolderWatcher::watchTree(const QString &directory)
{
    // A directory watched twice keeps its watch; only its path is brought up to date (it may have moved).
    const int wd = inotify_add_watch(fd_, QFile::encodeName(directory).constData(), eventMask);
    if (wd < 0)
        return;
    directories_.insert(wd, directory);
    QDirIterator subdirectories(directory, QDir::Dirs | QDir::NoDotAndDotDot | QDir::NoSymLinks);
    while (subdirectories.hasNext()) {
        const QString path = subdirectories.next();
        if (!isSkippedDirectory(subdirectories.fileName()))
            watchTree(path);
    }
}

void FolderWatcher::readEvents()
{
    alignas(inotify_event) char buffer[64 * 1024];
    for (;;) {
        const ssize_t length = ::read(fd_, buffer, sizeof buffer);
        if (length <= 0) {
            if (length < 0 && errno == EINTR)
                continue;
            break;
        }
        for (ssize_t offset = 0; offset + ssize_t(sizeof(inotify_event)) <= length;) {
            inotify_event event;
            std::memcpy(&event, buffer + offset, sizeof event);
            const char *name = buffer + offset + sizeof event;
            offset += ssize_t(sizeof event + event.len);

            if (event.mask & IN_Q_OVERFLOW) {
                // Events were lost, new folders among them perhaps: look again at everything.
                batchIsRelevant_ = true;
                watchTree(folder_);
                continue;
            }
            if (event.mask & IN_IGNORED) {
                directories_.remove(event.wd);
                continue;
            }
            const auto directory = directories_.constFind(event.wd);
            if (directory == directories_.constEnd())
                continue;
            const QString fileName = event.len > 0 ? QFile::decodeName(name) : QString();
            const QString path = fileName.isEmpty() ? *directory : *directory + QLatin1Char('/') + fileName;
            if ((event.mask & IN_ISDIR) && (event.mask & (IN_CREATE | IN_MOVED_TO)) && !isSkippedDirectory(fileName))
                watchTree(path);
            batchIsRelevant_ = batchIsRelevant_ || isRelevant(path);
        }
        if (!batch_.isActive())
            batch_.start();
    }
}

void FolderWatcher::endBatch()
{
    const bool relevant = batchIsRelevant_;
    batchIsRelevant_ = false;
    if (!relevant)
        return;
    // A copy: the callback may close the folder and with it this watcher.
    const auto onChange = onChange_;
    onChange();
}
