#include "ui/UpdateCheck.h"

#include "support/StubModelServer.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using Outcome = UpdateCheck::Result::Outcome;

namespace {

// An appcast with these <item> bodies. Its namespace is not the one published feeds use: elements are
// known by their names in whatever namespace the feed declares.
QByteArray appcast(const QStringList &items)
{
    return (uR"(<?xml version="1.0"?><rss version="2.0" xmlns:sparkle="http://example.org/appcast"><channel>)"_s
        + u"<item>"_s + items.join(u"</item><item>"_s) + u"</item></channel></rss>"_s)
        .toUtf8();
}

QString item(const QString &version, const QString &page = u"https://example.org/"_s)
{
    return u"<sparkle:version>"_s + version + u"</sparkle:version><link>"_s + page + u"</link>"_s;
}

const UpdateSource configured { u"https://example.org/appcast.xml"_s, u"a2V5"_s };

} // namespace

// What the user is told after a check, from the feed alone, running version 1.4.2.
TEST(UpdateCheckTest, theNewestReleaseDecides)
{
    const QString page = u"https://example.org/1.10"_s;
    const QString enclosure = uR"(<enclosure url="https://example.org/2.0.tar.gz" sparkle:version="2.0.0"
        sparkle:shortVersionString="2.0"/>)"_s;
    const std::tuple<QStringList, Outcome, QString, QString> cases[] = {
        // Versions compare number by number, wherever they stand in the feed.
        { { item(u"1.2"_s), item(u"1.10"_s, page), item(u"1.9"_s) }, Outcome::newer, u"1.10"_s, page },
        { { item(u"1.4.2.0"_s), item(u"1.3"_s) }, Outcome::upToDate, {}, {} },
        // Items that can't be offered are passed over: no number, no web page, a pre-release channel.
        { { item(u"1.5"_s, page), item(u"2.0-beta"_s), item(u"3.0"_s, u"file:///etc/passwd"_s),
              item(u"3.1"_s, u"javascript:alert(1)"_s), u"<sparkle:version>3.2</sparkle:version>"_s,
              item(u"3.3"_s) + u"<sparkle:channel>beta</sparkle:channel>"_s },
            Outcome::newer, u"1.5"_s, page },
        // The version may come with the download, and people see its short form; a page about the
        // release is offered rather than the download itself.
        { { enclosure }, Outcome::newer, u"2.0"_s, u"https://example.org/2.0.tar.gz"_s },
        { { item(u"2.1"_s) + uR"(<enclosure url="https://example.org/2.1.tar.gz"/>)"_s }, Outcome::newer, u"2.1"_s,
            u"https://example.org/"_s },
        { { item(u"next"_s) }, Outcome::failed, {}, {} },
    };
    for (const auto &[items, outcome, version, page] : cases) {
        const UpdateCheck::Result result = UpdateCheck::evaluate(appcast(items), u"1.4.2");
        EXPECT_EQ(result.outcome, outcome) << items.join(u'\n').toStdString();
        EXPECT_EQ(result.version, version);
        EXPECT_EQ(result.page, QUrl(page));
    }
    for (const QByteArray &feed :
        { QByteArray(), QByteArray("<html><body>Moved</body></html>"), appcast({ item(u"9.0"_s) }).chopped(12) }) {
        const UpdateCheck::Result result = UpdateCheck::evaluate(feed, u"1.4.2");
        EXPECT_EQ(result.outcome, Outcome::failed) << feed.toStdString();
        EXPECT_FALSE(result.message.isEmpty());
    }
}

// Updates are configured when building or in the system's update.conf; a check needs both the feed and
// the key.
TEST(UpdateCheckTest, configuration_needsFeedAndKey)
{
    QTemporaryDir dir;
    QFile conf(dir.filePath(u"update.conf"_s));
    ASSERT_TRUE(conf.open(QIODevice::WriteOnly));
    conf.write("SUFeedURL = https://example.org/cast.xml?a=1,2\nSUPublicEDKey = a2V5\n");
    conf.close();
    const UpdateSource fromFile = UpdateSource::read({}, conf.fileName());
    EXPECT_EQ(fromFile.feed, u"https://example.org/cast.xml?a=1,2");
    EXPECT_TRUE(fromFile.complete());
    EXPECT_EQ(UpdateSource::read({ u"https://built.example.org/"_s, {} }, conf.fileName()).feed,
        u"https://built.example.org/");
    EXPECT_FALSE(UpdateSource::read({}, dir.filePath(u"missing.conf"_s)).complete());

    EXPECT_FALSE(UpdateCheck({ configured.feed, {} }, u"1.0"_s).canCheck());
    EXPECT_TRUE(UpdateCheck(configured, u"1.0"_s).canCheck());
}

// Over HTTP: one check at a time, and whatever the server does ends in a result the user can read.
TEST(UpdateCheckTest, checkOverHttp_reportsAndAllowsTheNextCheck)
{
    StubModelServer server;
    server.reply(u"GET"_s, u"/appcast.xml"_s,
        { StubReply { .body = appcast({ item(u"0.2"_s) }), .contentType = "application/rss+xml" },
            StubModelServer::json(404, "Not Found") });
    UpdateCheck check({ server.url().toString() + u"/appcast.xml"_s, configured.publicKey }, u"0.1.0"_s);
    std::vector<bool> canCheck;
    std::vector<UpdateCheck::Result> results;
    QObject::connect(&check, &UpdateCheck::canCheckChanged, [&](bool can) { canCheck.push_back(can); });
    QObject::connect(&check, &UpdateCheck::finished, [&](const UpdateCheck::Result &r) { results.push_back(r); });
    for (std::size_t run = 1; run <= 2; ++run) {
        check.checkNow();
        check.checkNow();
        ASSERT_TRUE(QTest::qWaitFor([&] { return results.size() == run; }, 20000));
    }
    EXPECT_EQ(results[0].outcome, Outcome::newer);
    EXPECT_EQ(results[0].version, u"0.2");
    EXPECT_EQ(results[1].outcome, Outcome::failed);
    EXPECT_TRUE(results[1].message.contains(u"404")) << results[1].message.toStdString();
    EXPECT_EQ(canCheck, (std::vector { false, true, false, true }));
    EXPECT_EQ(server.requests(u"/appcast.xml"_s).size(), 2u);

    // The app quits while the server is still thinking: nothing reports to the check that is gone.
    server.reply(u"GET"_s, u"/appcast.xml"_s, { StubReply { .hold = true } });
    bool reported = false;
    {
        UpdateCheck closing({ server.url().toString() + u"/appcast.xml"_s, configured.publicKey }, u"0.1.0"_s);
        QObject::connect(&closing, &UpdateCheck::finished, [&] { reported = true; });
        closing.checkNow();
        ASSERT_TRUE(server.waitForRequests(u"/appcast.xml"_s, 3, std::chrono::seconds(10)));
    }
    QCoreApplication::processEvents();
    EXPECT_FALSE(reported);
    server.release();
}
