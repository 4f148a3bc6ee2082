#include "ui/Appcast.h"

#include <QXmlStreamReader>

#include <algorithm>

using namespace Qt::StringLiterals;

std::optional<Appcast::Version> Appcast::Version::parse(QStringView text)
{
    Version version;
    for (QStringView part : text.split(u'.')) {
        if (part.isEmpty() || !std::all_of(part.begin(), part.end(), [](QChar c) { return c.isDigit(); }))
            return std::nullopt;
        bool ok = false;
        version.parts_.push_back(part.toULongLong(&ok));
        if (!ok)
            return std::nullopt;
    }
    while (!version.parts_.empty() && version.parts_.back() == 0)
        version.parts_.pop_back();
    return version;
}

namespace {

struct Item {
    QString version;
    QString shortVersion;
    QString link;
    QString enclosure;
    bool namedChannel = false;
};

std::optional<QUrl> webPage(const QString &text)
{
    const QUrl url(text, QUrl::StrictMode);
    // The app offers the page to open in a browser: nothing that would run or open a local file.
    if (url.isValid() && (url.scheme() == u"https" || url.scheme() == u"http") && !url.host().isEmpty())
        return url;
    return std::nullopt;
}

// Elements of the appcast's own namespace; the plain ones are RSS's.
bool ownElement(const QXmlStreamReader &xml, QStringView name)
{
    return xml.name() == name && !xml.namespaceUri().isEmpty();
}

Item readItem(QXmlStreamReader &xml)
{
    Item item;
    QString enclosureVersion;
    QString enclosureShortVersion;
    const auto text = [&] { return xml.readElementText(QXmlStreamReader::SkipChildElements).trimmed(); };
    while (xml.readNextStartElement()) {
        if (ownElement(xml, u"version")) {
            item.version = text();
        } else if (ownElement(xml, u"shortVersionString")) {
            item.shortVersion = text();
        } else if (ownElement(xml, u"channel")) {
            item.namedChannel = !text().isEmpty();
        } else if (xml.name() == u"link" && xml.namespaceUri().isEmpty()) {
            item.link = text();
        } else if (xml.name() == u"enclosure" && xml.namespaceUri().isEmpty()) {
            for (const QXmlStreamAttribute &attribute : xml.attributes()) {
                if (attribute.namespaceUri().isEmpty()) {
                    if (attribute.name() == u"url")
                        item.enclosure = attribute.value().trimmed().toString();
                } else if (attribute.name() == u"version") {
                    enclosureVersion = attribute.value().trimmed().toString();
                } else if (attribute.name() == u"shortVersionString") {
                    enclosureShortVersion = attribute.value().trimmed().toString();
                }
            }
            xml.skipCurrentElement();
        } else {
            xml.skipCurrentElement();
        }
    }
    if (item.version.isEmpty())
        item.version = enclosureVersion;
    if (item.shortVersion.isEmpty())
        item.shortVersion = enclosureShortVersion;
    return item;
}

std::optional<Appcast::Release> release(const Item &item)
{
    if (item.namedChannel)
        return std::nullopt;
    const QString &compared = item.version.isEmpty() ? item.shortVersion : item.version;
    const auto version = Appcast::Version::parse(compared);
    auto page = webPage(item.link);
    if (!page)
        page = webPage(item.enclosure);
    if (!version || !page)
        return std::nullopt;
    return Appcast::Release { *version, item.shortVersion.isEmpty() ? compared : item.shortVersion, *page };
}

void readItems(QXmlStreamReader &xml, std::vector<Appcast::Release> &releases)
{
    while (xml.readNextStartElement()) {
        const bool rss = xml.namespaceUri().isEmpty();
        if (rss && xml.name() == u"channel") {
            readItems(xml, releases);
        } else if (rss && xml.name() == u"item") {
            if (auto found = release(readItem(xml)))
                releases.push_back(std::move(*found));
        } else {
            xml.skipCurrentElement();
        }
    }
}

} // namespace

std::vector<Appcast::Release> Appcast::releases(const QByteArray &feed)
{
    QXmlStreamReader xml(feed);
    std::vector<Release> found;
    if (xml.readNextStartElement()) {
        if (xml.name() != u"rss")
            throw Invalid(u"The update feed isn't an RSS feed"_s);
        readItems(xml, found);
    }
    if (xml.hasError())
        throw Invalid(u"The update feed can't be read: "_s + xml.errorString());
    return found;
}

std::optional<Appcast::Release> Appcast::newest(const std::vector<Release> &releases)
{
    const auto newest = std::max_element(
        releases.begin(), releases.end(), [](const Release &a, const Release &b) { return a.version < b.version; });
    if (newest == releases.end())
        return std::nullopt;
    return *newest;
}
