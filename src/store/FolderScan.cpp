#include "store/FolderScan.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>

#include <array>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <system_error>

namespace fs = std::filesystem;

namespace {
bool isHidden(const std::string &name)
{
    return !name.empty() && name.front() == '.';
}

// The extension, in any case, is "pdf".
bool hasPDFExtension(const std::string &name)
{
    static constexpr std::string_view extension = ".pdf";
    if (name.size() <= extension.size())
        return false;
    for (std::size_t i = 0; i < extension.size(); ++i) {
        const char c = name[name.size() - extension.size() + i];
        if ((c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c) != extension[i])
            return false;
    }
    return true;
}

QDateTime modificationTime(const struct stat &info)
{
    return QDateTime::fromMSecsSinceEpoch(
        qint64(info.st_mtim.tv_sec) * 1000 + info.st_mtim.tv_nsec / 1'000'000, Qt::UTC);
}

fs::directory_iterator open(const fs::path &directory)
{
    std::error_code error;
    fs::directory_iterator it(directory, fs::directory_options::skip_permission_denied, error);
    return error ? fs::directory_iterator() : it;
}
} // namespace

bool isSkippedDirectory(const QString &name)
{
    static const std::array<QLatin1String, 4> packages = { QLatin1String(".app"), QLatin1String(".bundle"),
        QLatin1String(".photoslibrary"), QLatin1String(".sparsebundle") };
    if (name.startsWith(QLatin1Char('.')))
        return true;
    for (const auto &suffix : packages)
        if (name.endsWith(suffix, Qt::CaseInsensitive))
            return true;
    return false;
}

QDateTime distantPast()
{
    return QDateTime(QDate(1, 1, 1), QTime(0, 0), Qt::UTC);
}

std::vector<ScanStore::FileInfo> enumeratePDFs(const QString &folder)
{
    std::error_code error;
    const fs::path root = fs::canonical(fs::path(QFile::encodeName(folder).toStdString()), error);
    if (error)
        return {};
    std::string base = root.native();
    if (base.empty() || base.back() != '/')
        base += '/';

    std::vector<ScanStore::FileInfo> files;
    // Depth first: a subfolder is walked as soon as it is met. Links to folders aren't followed, so every
    // path reached is the canonical path of what it names, and no link can make the walk go round.
    std::vector<fs::directory_iterator> walk;
    walk.push_back(open(root));
    while (!walk.empty()) {
        fs::directory_iterator &it = walk.back();
        if (it == fs::directory_iterator()) {
            walk.pop_back();
            continue;
        }
        const fs::directory_entry entry = *it;
        it.increment(error);
        if (error)
            it = fs::directory_iterator();

        const std::string name = entry.path().filename().native();
        if (isHidden(name))
            continue;
        const bool isLink = entry.is_symlink(error);
        if (!isLink && entry.is_directory(error)) {
            if (!isSkippedDirectory(QFile::decodeName(name.c_str())))
                walk.push_back(open(entry.path()));
            continue;
        }
        if (!hasPDFExtension(name))
            continue;

        std::string path = entry.path().native();
        if (isLink) {
            path = fs::canonical(entry.path(), error).native();
            if (error || path.compare(0, base.size(), base) != 0)
                continue;
        } else if (!entry.is_regular_file(error)) {
            continue;
        }
        struct stat info;
        const bool known = ::stat(path.c_str(), &info) == 0;
        if (isLink && !(known && S_ISREG(info.st_mode)))
            continue;
        files.push_back({ QFile::decodeName(path.c_str() + base.size()), known ? std::int64_t(info.st_size) : 0,
            known ? modificationTime(info) : distantPast() });
    }
    return files;
}

std::function<std::optional<QString>(const QString &)> fileHasher(const QString &folder)
{
    return [root = QDir(folder)](const QString &relativePath) -> std::optional<QString> {
        QFile file(root.filePath(relativePath));
        if (!file.open(QIODevice::ReadOnly))
            return std::nullopt;
        QCryptographicHash hash(QCryptographicHash::Sha256);
        QByteArray chunk(1 << 18, Qt::Uninitialized);
        for (;;) {
            const qint64 length = file.read(chunk.data(), chunk.size());
            if (length < 0)
                return std::nullopt;
            if (length == 0)
                break;
            hash.addData(QByteArrayView(chunk.constData(), length));
        }
        return QString::fromLatin1(hash.result().toHex());
    };
}
