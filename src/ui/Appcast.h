#pragma once

#include "core/Error.h"

#include <QByteArray>
#include <QString>
#include <QStringView>
#include <QUrl>

#include <compare>
#include <optional>
#include <vector>

// An appcast: the RSS feed that lists a program's releases, one <item> each, with its version in
// <sparkle:version> or <sparkle:shortVersionString> (as elements or as attributes of the
// <enclosure>), and a page about it in <link> or the enclosure's url.
namespace Appcast {

// A version of dot-separated numbers, compared number by number ("1.10" is newer than "1.9"; "2" and
// "2.0" are the same).
class Version {
public:
    // Absent unless every part is a number: "1.2-beta" or "1..2" is no version.
    static std::optional<Version> parse(QStringView text);

    friend auto operator<=>(const Version &, const Version &) = default;

private:
    std::vector<quint64> parts_;
};

struct Release {
    Version version;
    // As the feed shows it to people: the short version string when there is one.
    QString versionText;
    QUrl page;
};

struct Invalid : Error {
    using Error::Error;
};

// The releases the feed lists, in its order. Items without a version or an http(s) page, and those of
// a named channel (pre-releases), are left out. Throws Invalid when the text is no RSS feed.
std::vector<Release> releases(const QByteArray &feed);

// The newest of them, absent when there are none.
std::optional<Release> newest(const std::vector<Release> &releases);

} // namespace Appcast
