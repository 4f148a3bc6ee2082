#include "ui/ModelSettingsPage.h"

#include "extract/model/ModelSettings.h"
#include "ui/ToneLabel.h"

#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

#include "WindowFixture.h"

namespace {

// The model page over a real library on a folder of fake scans; nothing is opened until a test says so.
class ModelPageTest : public WindowTest {
protected:
    ModelSettingsPage &showPage()
    {
        if (!library)
            library = std::make_unique<Library>(
                LibraryOptions { .searchDelay = 0ms, .modelRetry = 30ms, .modelPoll = 30ms });
        page = std::make_unique<ModelSettingsPage>(*library);
        page->show();
        return *page;
    }
    template <typename T> T *field(const QString &name) const
    {
        T *found = page->findChild<T *>(name);
        EXPECT_NE(found, nullptr) << qPrintable(name);
        return found;
    }
    // The focusable controls without an accessible name (a button's text counts).
    QStringList unnamedControls() const
    {
        QStringList unnamed;
        for (QWidget *widget : page->findChildren<QWidget *>()) {
            const auto *button = qobject_cast<QAbstractButton *>(widget);
            if (widget->isVisibleTo(page.get()) && widget->focusPolicy() && widget->accessibleName().isEmpty()
                && !(button && !button->text().isEmpty()))
                unnamed << QString::fromLatin1(widget->metaObject()->className()) + u' ' + widget->objectName();
        }
        return unnamed;
    }
    QString status() const { return field<ToneLabel>(u"modelStatus"_s)->text(); }
    // Types the server's address and waits for the page to say `expected` about it.
    bool typeServer(const QString &text, const QString &expected)
    {
        field<QLineEdit>(u"modelServerField"_s)->setText(text);
        return waitUntil([&] { return status() == expected; });
    }
    void apply() { field<QPushButton>(u"applyModelSettings"_s)->click(); }
    QStringList listedModels() const
    {
        QStringList models;
        const QComboBox *box = field<QComboBox>(u"modelNameField"_s);
        for (int index = 0; index < box->count(); ++index)
            models << box->itemText(index);
        return models;
    }

    std::unique_ptr<ModelSettingsPage> page;
};

} // namespace

static const QString available = u"Local model available"_s;

// The models of either kind of server are offered; the context size is asked for only where Ollama
// takes it, and a model the server lacks is said so in the status bar's words.
TEST_F(ModelPageTest, modelListComesFromEitherKindOfServer)
{
    server.serveOllama({ u"llama3.2:latest"_s, u"qwen2.5:3b"_s });
    StubModelServer llamaServer;
    llamaServer.serveLlamaServer({ u"gemma-3-4b"_s }, 8192);
    showPage();
    ASSERT_TRUE(waitUntil([&] { return status() == available; })) << status().toStdString();
    EXPECT_EQ(listedModels(), (QStringList { u"llama3.2:latest"_s, u"qwen2.5:3b"_s }));
    EXPECT_TRUE(field<QSpinBox>(u"modelContextField"_s)->isVisibleTo(page.get()));
    EXPECT_TRUE(field<QSpinBox>(u"modelContextField"_s)->isEnabled());

    ASSERT_TRUE(typeServer(llamaServer.url().toString(),
        u"Local model unavailable: The model “qwen2.5:3b” isn't installed on the model server"_s))
        << status().toStdString();
    EXPECT_EQ(field<ToneLabel>(u"modelStatus"_s)->tone(), ToneLabel::Tone::orange);
    EXPECT_EQ(listedModels(), QStringList { u"gemma-3-4b"_s });
    EXPECT_FALSE(field<QSpinBox>(u"modelContextField"_s)->isVisibleTo(page.get()));
    EXPECT_TRUE(field<ToneLabel>(u"modelContextNote"_s)->isVisibleTo(page.get()));
    // Choosing the listed model makes it available; the typed text stays what was chosen.
    field<QComboBox>(u"modelNameField"_s)->setCurrentIndex(0);
    ASSERT_TRUE(waitUntil([&] { return status() == available; })) << status().toStdString();
    EXPECT_EQ(field<QComboBox>(u"modelNameField"_s)->currentText(), u"gemma-3-4b"_s);
    EXPECT_EQ(unnamedControls(), QStringList());
}

// What can't be a model server, or answers as none, is explained on the page and can't be applied.
TEST_F(ModelPageTest, unusableServerSaysWhyAndStoresNothing)
{
    QSettings().remove(u"ModelServer"_s);
    StubModelServer website;
    website.reply(u"GET"_s, u"/api/version"_s, { StubModelServer::json(200, "<html>Welcome</html>") });
    website.reply(u"GET"_s, u"/v1/models"_s, { StubModelServer::json(200, "<html>Welcome</html>") });
    showPage();

    ASSERT_TRUE(typeServer(u"ftp://files.example.org"_s, u"A model server is reached over http or https, not “ftp”"_s))
        << status().toStdString();
    EXPECT_FALSE(field<QPushButton>(u"applyModelSettings"_s)->isEnabled());
    apply();

    ASSERT_TRUE(typeServer(website.url().toString(), u"Local model unavailable: The local model is unavailable"_s))
        << status().toStdString();
    EXPECT_TRUE(field<ToneLabel>(u"modelServerNote"_s)->text().contains(u"with no list of models: <html>Welcome"_s))
        << field<ToneLabel>(u"modelServerNote"_s)->text().toStdString();
    EXPECT_FALSE(field<QPushButton>(u"applyModelSettings"_s)->isEnabled());
    apply();
    EXPECT_FALSE(QSettings().contains(u"ModelServer"_s));

    // Reverting shows what is stored: the default server.
    field<QPushButton>(u"revertModelSettings"_s)->click();
    EXPECT_EQ(field<QLineEdit>(u"modelServerField"_s)->text(), QString());
}

// Scans waiting for a model server that is down are filed as soon as a running one is applied.
TEST_F(ModelPageTest, applyingAnotherServerWhileTheOldIsDownFilesTheWaitingScans)
{
    QUrl gone;
    {
        StubModelServer stopped;
        gone = stopped.url();
    }
    QSettings().setValue(u"ModelServer"_s, gone.toString());
    fakeScan(u"one.pdf"_s, u"Spring meeting of the garden club"_s);
    fakeScan(u"two.pdf"_s, u"Autumn meeting of the garden club"_s);
    showPage();
    library->open(folder.path(), false);
    ASSERT_TRUE(waitUntil([&] { return library->pendingOCR() == 0 && library->modelProblem().has_value(); }));
    EXPECT_EQ(library->pendingExtraction(), 2);

    ASSERT_TRUE(typeServer(server.url().toString(), available)) << status().toStdString();
    EXPECT_EQ(library->pendingExtraction(), 2);
    apply();
    EXPECT_EQ(QSettings().value(u"ModelServer"_s).toString(), server.url().toString());
    EXPECT_FALSE(field<QPushButton>(u"applyModelSettings"_s)->isEnabled());
    ASSERT_TRUE(waitUntil([&] { return library->pendingExtraction() == 0 && !library->isExtracting(); }));
    for (const auto &[id, document] : library->documentsByID())
        EXPECT_EQ(document.organizationName, u"Garden Club"_s) << document.path.toStdString();
    EXPECT_FALSE(library->modelProblem());
}

// A server that keeps the page waiting holds up neither a newer choice nor the page's closing.
TEST_F(ModelPageTest, slowServerHoldsUpNeitherANewerChoiceNorClosing)
{
    StubModelServer slow;
    StubReply held = StubModelServer::json(200, R"({"version":"0.6.0"})");
    held.hold = true;
    slow.reply(u"GET"_s, u"/api/version"_s, { held });
    showPage();
    ASSERT_TRUE(waitUntil([&] { return status() == available; }));

    field<QLineEdit>(u"modelServerField"_s)->setText(slow.url().toString());
    ASSERT_TRUE(waitUntil([&] { return slow.requests(u"/api/version"_s).size() == 1; }));
    ASSERT_TRUE(typeServer(server.url().toString() + u"/"_s, available)) << status().toStdString();

    field<QLineEdit>(u"modelServerField"_s)->setText(slow.url().toString());
    ASSERT_TRUE(waitUntil([&] { return slow.requests(u"/api/version"_s).size() == 2; }));
    page.reset();
    QCoreApplication::processEvents();
    slow.release();
}
