#include "library/Thumbnails.h"

#include "library/LibraryFixture.h"
#include "library/RenderPool.h"
#include "support/FakeScans.h"

#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using namespace Qt::StringLiterals;

// What one request answered, once it has.
struct Answer {
    bool arrived = false;
    std::optional<QImage> image;
};

QCoro::Task<> ask(Thumbnails &thumbnails, QString path, QDateTime modified, int rotation, Answer *answer)
{
    answer->image = co_await thumbnails.image(path, modified, rotation, 120);
    answer->arrived = true;
}

// Whether the fake page's dark bar is along the top of the picture.
bool barOnTop(const QImage &image)
{
    return qGray(image.pixel(image.width() / 2, 0)) < 50
        && qGray(image.pixel(image.width() / 2, image.height() - 1)) > 200;
}

class ThumbnailsTest : public ::testing::Test {
protected:
    ThumbnailsTest()
    {
        QSettings().clear();
        qputenv("VELLUMARK_READER", fakeReaderProgram().toUtf8());
    }
    ~ThumbnailsTest() override
    {
        qunsetenv("VELLUMARK_READER");
        QSettings().clear();
    }

    QString scan(const QString &name, const QString &text = u"A page"_s)
    {
        const QString path = folder.filePath(name);
        writeFakeScan(path, { text });
        return path;
    }

    // Asks for the thumbnail and keeps the request running until it answers.
    Answer &request(const QString &path, int rotation = 0, const QDateTime &modified = someTime)
    {
        answers.push_back(std::make_unique<Answer>());
        tasks.push_back(ask(*thumbnails, path, modified, rotation, answers.back().get()));
        return *answers.back();
    }

    // The renders begun so far: the name of each file and how many renders were under way as it began.
    std::vector<std::pair<QString, int>> renders() const
    {
        QFile log(folder.filePath(QString::fromLatin1(fakeRenderLog)));
        std::vector<std::pair<QString, int>> lines;
        if (!log.open(QIODevice::ReadOnly))
            return lines;
        for (const QByteArray &line : log.readAll().split('\n')) {
            const qsizetype space = line.lastIndexOf(' ');
            if (space > 0)
                lines.emplace_back(QString::fromUtf8(line.left(space)), line.mid(space + 1).toInt());
        }
        return lines;
    }
    qsizetype rendersOf(const QString &path) const
    {
        const QString name = QFileInfo(path).fileName();
        return std::ranges::count_if(renders(), [&](const auto &render) { return render.first == name; });
    }

    static inline const QDateTime someTime = QDateTime::fromSecsSinceEpoch(1700000000);

    QTemporaryDir folder;
    std::unique_ptr<Thumbnails> thumbnails;
    std::vector<std::unique_ptr<Answer>> answers;
    std::vector<QCoro::Task<>> tasks;
};

// Two requests for one key make one render and both get its picture; later ones are served from the
// cache. Another rotation is another key, rendered turned; the first stays cached.
TEST_F(ThumbnailsTest, oneRenderPerKeyServesEveryRequestAndAnotherRotationIsRenderedAgain)
{
    thumbnails = std::make_unique<Thumbnails>(std::make_shared<RenderPool>());
    const QString path = scan(u"letter.pdf"_s);
    const Answer &first = request(path);
    const Answer &second = request(path);
    ASSERT_TRUE(waitUntil([&] { return first.arrived && second.arrived; }));
    ASSERT_TRUE(first.image && second.image);
    EXPECT_EQ(*first.image, *second.image);
    EXPECT_TRUE(barOnTop(*first.image));
    EXPECT_EQ(first.image->height(), 120);
    EXPECT_EQ(rendersOf(path), 1);

    EXPECT_EQ(thumbnails->cached(Thumbnails::key(path, someTime, 0)), first.image);
    const Answer &again = request(path);
    ASSERT_TRUE(waitUntil([&] { return again.arrived; }));
    EXPECT_EQ(again.image, first.image);
    EXPECT_EQ(rendersOf(path), 1);

    const Answer &upsideDown = request(path, 180);
    ASSERT_TRUE(waitUntil([&] { return upsideDown.arrived; }));
    ASSERT_TRUE(upsideDown.image);
    EXPECT_TRUE(barOnTop(upsideDown.image->mirrored(false, true)));
    EXPECT_EQ(rendersOf(path), 2);
    EXPECT_EQ(thumbnails->cached(Thumbnails::key(path, someTime, 0)), first.image);
    EXPECT_NE(Thumbnails::key(path, someTime, 0), Thumbnails::key(path, someTime.addMSecs(500), 0));
}

// With more readers than slots, the thumbnails alone keep renders to three at once; when one of the
// first three finishes, the request made last starts first.
TEST_F(ThumbnailsTest, atMostThreeRenderAtOnceAndTheNewestWaiterGoesFirst)
{
    thumbnails = std::make_unique<Thumbnails>(std::make_shared<RenderPool>(RenderPool::Options { .readers = 5 }));
    std::vector<QString> paths;
    std::vector<const Answer *> asked;
    for (int index = 1; index <= 5; ++index) {
        paths.push_back(scan(u"scan%1.pdf"_s.arg(index), QString::fromLatin1(fakeRenderWait)));
        asked.push_back(&request(paths.back()));
    }
    const auto go = [&](const QString &path) { writeFakeScan(path + u".go"_s, {}); };
    ASSERT_TRUE(waitUntil([&] { return renders().size() >= 3; }));
    const QString firstDone = renders().front().first;
    go(folder.filePath(firstDone));
    ASSERT_TRUE(waitUntil([&] { return renders().size() >= 4; }));
    for (const QString &path : paths)
        go(path);
    ASSERT_TRUE(
        waitUntil([&] { return std::ranges::all_of(asked, [](const Answer *answer) { return answer->arrived; }); }));

    const std::vector<std::pair<QString, int>> begun = renders();
    ASSERT_EQ(begun.size(), 5u);
    std::vector<QString> firstThree { begun[0].first, begun[1].first, begun[2].first };
    std::ranges::sort(firstThree);
    EXPECT_EQ(firstThree, (std::vector { u"scan1.pdf"_s, u"scan2.pdf"_s, u"scan3.pdf"_s }));
    EXPECT_EQ(begun[3].first, u"scan5.pdf"_s);
    EXPECT_EQ(begun[4].first, u"scan4.pdf"_s);
    for (const auto &[name, underWay] : begun)
        EXPECT_LE(underWay, 3) << name.toStdString();
    for (const Answer *answer : asked)
        EXPECT_TRUE(answer->image);
}

// Past a couple of screenfuls of waiting requests, the one that waited longest is given up unrendered
// and said so, so that the table asks again when its row is painted.
TEST_F(ThumbnailsTest, theOldestWaiterBeyondTheLimitIsGivenUpWithoutRendering)
{
    thumbnails = std::make_unique<Thumbnails>(std::make_shared<RenderPool>(RenderPool::Options { .readers = 3 }));
    QStringList skipped;
    QObject::connect(thumbnails.get(), &Thumbnails::skipped, [&](const QString &key) { skipped << key; });
    std::vector<QString> busy;
    for (int index = 1; index <= Thumbnails::maxConcurrent; ++index) {
        busy.push_back(scan(u"busy%1.pdf"_s.arg(index), QString::fromLatin1(fakeRenderWait)));
        request(busy.back());
    }
    ASSERT_TRUE(waitUntil([&] { return int(renders().size()) == Thumbnails::maxConcurrent; }));
    std::vector<const Answer *> waiting;
    for (int index = 0; index <= Thumbnails::maxWaiting; ++index)
        waiting.push_back(&request(scan(u"row%1.pdf"_s.arg(index))));
    ASSERT_TRUE(waitUntil([&] { return waiting.front()->arrived; }));
    EXPECT_FALSE(waiting.front()->image);
    EXPECT_EQ(skipped, QStringList { Thumbnails::key(folder.filePath(u"row0.pdf"_s), someTime, 0) });

    for (const QString &path : busy)
        writeFakeScan(path + u".go"_s, {});
    ASSERT_TRUE(waitUntil([&] {
        return std::ranges::all_of(
            waiting.begin() + 1, waiting.end(), [](const Answer *answer) { return answer->arrived; });
    }));
    EXPECT_TRUE(std::ranges::all_of(
        waiting.begin() + 1, waiting.end(), [](const Answer *answer) { return answer->image.has_value(); }));
    EXPECT_FALSE(std::ranges::any_of(renders(), [](const auto &render) { return render.first == u"row0.pdf"_s; }));
    // Asked again, it renders.
    const Answer &again = request(folder.filePath(u"row0.pdf"_s));
    ASSERT_TRUE(waitUntil([&] { return again.arrived; }));
    EXPECT_TRUE(again.image);
}

// A file that gives no image isn't remembered: once it is a scan, the same key renders.
TEST_F(ThumbnailsTest, aFileThatIsNotAPdfGivesNoImageAndIsTriedAgain)
{
    thumbnails = std::make_unique<Thumbnails>(std::make_shared<RenderPool>());
    const QString path = folder.filePath(u"notes.pdf"_s);
    writeFile(path, "not a PDF");
    const Answer &refused = request(path);
    ASSERT_TRUE(waitUntil([&] { return refused.arrived; }));
    EXPECT_FALSE(refused.image);
    EXPECT_FALSE(thumbnails->cached(Thumbnails::key(path, someTime, 0)));

    writeFakeScan(path, { u"A page"_s });
    const Answer &later = request(path);
    ASSERT_TRUE(waitUntil([&] { return later.arrived; }));
    EXPECT_TRUE(later.image);
}

// A render that hangs past the time limit, or ends its reader, gives no image while other thumbnails
// keep coming; its key is not rendered again until the file's time changes.
TEST_F(ThumbnailsTest, aRenderThatHangsOrCrashesGivesNoImageAndIsNotRenderedAgainUntilTheFileChanges)
{
    QSettings().setValue(RenderSettings::timeoutKey, 2);
    thumbnails = std::make_unique<Thumbnails>(std::make_shared<RenderPool>());
    const QString hangs = scan(u"hangs.pdf"_s, QString::fromLatin1(fakeRenderHang));
    const QString crashes = scan(u"crashes.pdf"_s, QString::fromLatin1(fakeRenderCrash));
    std::vector<QString> good;
    for (int index = 1; index <= 4; ++index)
        good.push_back(scan(u"good%1.pdf"_s.arg(index)));

    const Answer &hung = request(hangs);
    const Answer &crashed = request(crashes);
    std::vector<const Answer *> others;
    for (const QString &path : good)
        others.push_back(&request(path));
    const auto othersArrived
        = [&] { return std::ranges::all_of(others, [](const Answer *answer) { return answer->arrived; }); };
    ASSERT_TRUE(waitUntil([&] { return othersArrived() || hung.arrived; }));
    EXPECT_TRUE(othersArrived());
    EXPECT_FALSE(hung.arrived);
    for (const Answer *answer : others)
        EXPECT_TRUE(answer->image);
    ASSERT_TRUE(waitUntil([&] { return hung.arrived && crashed.arrived; }));
    EXPECT_FALSE(hung.image);
    EXPECT_FALSE(crashed.image);

    for (const QString &path : { hangs, crashes }) {
        SCOPED_TRACE(path.toStdString());
        const Answer &same = request(path);
        ASSERT_TRUE(waitUntil([&] { return same.arrived; }));
        EXPECT_FALSE(same.image);
        EXPECT_EQ(rendersOf(path), 1);

        const Answer &changed = request(path, 0, someTime.addSecs(60));
        ASSERT_TRUE(waitUntil([&] { return changed.arrived; }));
        EXPECT_FALSE(changed.image);
        EXPECT_EQ(rendersOf(path), 2);
    }
    const Answer &afterwards = request(good.front(), 90);
    ASSERT_TRUE(waitUntil([&] { return afterwards.arrived; }));
    EXPECT_TRUE(afterwards.image);
}

} // namespace
