#include "ui/UpdateCheck.h"

#include "support/StubModelServer.h"
#include "ui/Appcast.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>

using namespace Qt::StringLiterals;
using Outcome = UpdateCheck::Result::Outcome;

namespace {

// An appcast with these <item> bodies. The namespace is not the one published feeds use: the reader
// goes by the elements' names in whatever namespace the feed declares.
QByteArray appcast(const QStringList &items)
{
    QString feed = uR"(<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="http://example.org/xml-namespaces/appcast">
<channel><title>Vellumark</title>
)"_s;
    for (const QString &item : items)
        feed += u"<item>"_s + item + u"</item>\n"_s;
    return (feed + u"</channel></rss>\n"_s).toUtf8();
}

QString item(const QString &version, const QString &page)
{
    return u"<title>Vellumark "_s + version + u"</title><sparkle:version>"_s + version + u"</sparkle:version><link>"_s
        + page + u"</link>"_s;
}

std::optional<Appcast::Version> version(QStringView text)
{
    return Appcast::Version::parse(text);
}

const UpdateSource configured { u"https://updates.example.org/appcast.xml"_s, u"c2lnbmluZyBrZXk="_s };

} // namespace

TEST(UpdateCheckTest, versionsCompareNumberByNumber)
{
    EXPECT_GT(version(u"1.10"), version(u"1.9"));
    EXPECT_GT(version(u"1.0.1"), version(u"1"));
    EXPECT_GT(version(u"2"), version(u"1.99.99"));
    EXPECT_EQ(version(u"2"), version(u"2.0.0"));
    EXPECT_EQ(version(u"0.1.0"), version(u"0.1"));
    for (QStringView text : { u"", u"1..2", u"1.2-beta", u"v1.2", u"1.2.", u" 1.2", u"1.x" })
        EXPECT_FALSE(version(text)) << text.toString().toStdString();
}

// What the user is told after a check, from the feed alone.
TEST(UpdateCheckTest, theNewestReleaseDecides)
{
    const QString page = u"https://example.org/releases/"_s;
    struct Case {
        QStringList items;
        Outcome outcome;
        QString version;
        QString page;
    };
    const Case cases[] = {
        // Newest by number, wherever it stands in the feed.
        { { item(u"1.2"_s, page + u"1.2"_s), item(u"1.10"_s, page + u"1.10"_s), item(u"1.9"_s, page + u"1.9"_s) },
            Outcome::newer, u"1.10"_s, page + u"1.10"_s },
        { { item(u"1.4.2.0"_s, page), item(u"1.3"_s, page) }, Outcome::upToDate, {}, {} },
        { { item(u"0.9"_s, page) }, Outcome::upToDate, {}, {} },
        // Items that can't be offered are passed over: no number, no web page, a pre-release channel.
        { { item(u"1.5"_s, page + u"1.5"_s), item(u"2.0-beta"_s, page), item(u"3.0"_s, u"file:///etc/passwd"_s),
              item(u"3.1"_s, u"javascript:alert(1)"_s), u"<sparkle:version>3.2</sparkle:version>"_s,
              item(u"3.3"_s, page) + u"<sparkle:channel>beta</sparkle:channel>"_s },
            Outcome::newer, u"1.5"_s, page + u"1.5"_s },
        // The version may come with the enclosure; people are shown the short version; a page about the
        // release is offered rather than the download.
        { { uR"(<enclosure url="https://example.org/vellumark-2.0.tar.gz" sparkle:version="2.0.0"
                sparkle:shortVersionString="2.0" length="1000" type="application/octet-stream"/>)"_s },
            Outcome::newer, u"2.0"_s, u"https://example.org/vellumark-2.0.tar.gz"_s },
        { { uR"(<link>https://example.org/2.1</link><sparkle:version>2.1</sparkle:version>
                <enclosure url="https://example.org/vellumark-2.1.tar.gz" sparkle:version="9.9"/>)"_s },
            Outcome::newer, u"2.1"_s, u"https://example.org/2.1"_s },
        { {}, Outcome::failed, {}, {} },
        { { item(u"next"_s, page) }, Outcome::failed, {}, {} },
    };
    for (const Case &c : cases) {
        const UpdateCheck::Result result = UpdateCheck::evaluate(appcast(c.items), u"1.4.2");
        EXPECT_EQ(result.outcome, c.outcome) << c.items.join(u'\n').toStdString();
        EXPECT_EQ(result.version, c.version);
        EXPECT_EQ(result.page, QUrl(c.page));
    }

    for (const QByteArray &feed : { QByteArray(), QByteArray("<html><body>Moved</body></html>"),
             appcast({ item(u"9.0"_s, page) }).chopped(12), QByteArray("{\"version\":\"9.0\"}") }) {
        const UpdateCheck::Result result = UpdateCheck::evaluate(feed, u"1.4.2");
        EXPECT_EQ(result.outcome, Outcome::failed) << feed.toStdString();
        EXPECT_FALSE(result.message.isEmpty());
    }
}

// A distribution configures updates when building or in the system's update.conf; either way both the
// feed and the key are needed.
TEST(UpdateCheckTest, configuration_needsFeedAndKey)
{
    QTemporaryDir dir;
    const auto configFile = [&](const QByteArray &text) {
        QFile file(dir.filePath(u"update.conf"_s));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(text);
        return file.fileName();
    };
    const QString missing = dir.filePath(u"missing.conf"_s);
    const QString both = configFile("SUFeedURL = https://example.org/cast.xml?a=1,2\nSUPublicEDKey = a2V5\n");

    const UpdateSource fromFile = UpdateSource::read({}, both);
    EXPECT_EQ(fromFile.feed, u"https://example.org/cast.xml?a=1,2");
    EXPECT_EQ(fromFile.publicKey, u"a2V5");
    EXPECT_TRUE(fromFile.complete());
    EXPECT_EQ(UpdateSource::read(configured, both).feed, configured.feed);
    EXPECT_EQ(UpdateSource::read({ configured.feed, {} }, both).publicKey, u"a2V5");
    EXPECT_TRUE(UpdateSource::read(configured, missing).complete());
    EXPECT_FALSE(UpdateSource::read({}, missing).complete());
    EXPECT_FALSE(UpdateSource::read({}, configFile("SUFeedURL=https://example.org/cast.xml\n")).complete());
    EXPECT_FALSE(
        UpdateSource::read({}, configFile("SUFeedURL=https://example.org/cast.xml\nSUPublicEDKey=\n")).complete());

    for (const UpdateSource &incomplete :
        { UpdateSource(), UpdateSource { configured.feed, {} }, UpdateSource { {}, configured.publicKey } }) {
        UpdateCheck check(incomplete, u"1.0"_s);
        bool finished = false;
        QObject::connect(&check, &UpdateCheck::finished, [&] { finished = true; });
        EXPECT_FALSE(check.canCheck());
        check.checkNow();
        QCoreApplication::processEvents();
        EXPECT_FALSE(finished);
    }
    EXPECT_TRUE(UpdateCheck(configured, u"1.0"_s).canCheck());
}

// The check over HTTP: one at a time, and whatever the server does ends in a result the user can read.
TEST(UpdateCheckTest, checkOverHttp_reportsAndAllowsTheNextCheck)
{
    StubModelServer server;
    const QString path = u"/appcast.xml"_s;
    const StubReply feed { .body = appcast({ item(u"0.2"_s, u"https://example.org/0.2"_s) }),
        .contentType = "application/rss+xml" };
    const StubReply huge { .body = appcast({ item(u"0.3"_s, u"https://example.org/0.3"_s) + u"<description>"_s
                               + QString(5 * 1024 * 1024, u'x') + u"</description>"_s }),
        .contentType = "text/xml" };
    server.reply(u"GET"_s, path, { feed, StubModelServer::json(404, "Not Found"), huge });

    UpdateCheck check({ server.url().resolved(QUrl(path)).toString(), configured.publicKey }, u"0.1.0"_s);
    std::vector<bool> canCheck;
    std::vector<UpdateCheck::Result> results;
    QObject::connect(&check, &UpdateCheck::canCheckChanged, [&](bool can) { canCheck.push_back(can); });
    QObject::connect(&check, &UpdateCheck::finished, [&](const UpdateCheck::Result &r) { results.push_back(r); });
    const auto run = [&] {
        const std::size_t before = results.size();
        check.checkNow();
        EXPECT_FALSE(check.canCheck());
        check.checkNow();
        EXPECT_TRUE(QTest::qWaitFor([&] { return results.size() > before; }, 20000));
        EXPECT_TRUE(check.canCheck());
        return results.back();
    };

    const UpdateCheck::Result newer = run();
    EXPECT_EQ(newer.outcome, Outcome::newer);
    EXPECT_EQ(newer.version, u"0.2");
    EXPECT_EQ(newer.page, QUrl(u"https://example.org/0.2"_s));
    EXPECT_EQ(canCheck, (std::vector { false, true }));

    const UpdateCheck::Result notFound = run();
    EXPECT_EQ(notFound.outcome, Outcome::failed);
    EXPECT_TRUE(notFound.message.contains(u"404")) << notFound.message.toStdString();
    // Whatever answers at the feed's address is read only up to a size an appcast can have.
    EXPECT_EQ(run().outcome, Outcome::failed);
    EXPECT_EQ(server.requests(path).size(), 3u);
}

TEST(UpdateCheckTest, serverGoneOrCheckClosed_endsQuietly)
{
    QUrl gone;
    {
        StubModelServer server;
        gone = server.url().resolved(QUrl(u"/appcast.xml"_s));
    }
    UpdateCheck unreachable({ gone.toString(), configured.publicKey }, u"0.1.0"_s);
    std::optional<UpdateCheck::Result> result;
    QObject::connect(&unreachable, &UpdateCheck::finished, [&](const UpdateCheck::Result &r) { result = r; });
    unreachable.checkNow();
    ASSERT_TRUE(QTest::qWaitFor([&] { return result.has_value(); }, 20000));
    EXPECT_EQ(result->outcome, Outcome::failed);
    EXPECT_FALSE(result->message.isEmpty());

    // The app quits while the server is still thinking: nothing is reported to the closed check.
    StubModelServer slow;
    slow.reply(u"GET"_s, u"/appcast.xml"_s, { StubReply { .hold = true } });
    bool reported = false;
    {
        UpdateCheck closing(
            { slow.url().resolved(QUrl(u"/appcast.xml"_s)).toString(), configured.publicKey }, u"0.1.0"_s);
        QObject::connect(&closing, &UpdateCheck::finished, [&] { reported = true; });
        closing.checkNow();
        ASSERT_TRUE(slow.waitForRequests(u"/appcast.xml"_s, 1, std::chrono::seconds(10)));
    }
    QCoreApplication::processEvents();
    EXPECT_FALSE(reported);
    slow.release();
}
