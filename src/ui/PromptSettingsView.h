#pragma once

#include <QString>
#include <QUrl>
#include <QWidget>

#include <cstdint>
#include <optional>

class EmptyState;
class Library;
class QFrame;
class QLabel;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;
class QStackedLayout;
class QToolButton;
class ToneLabel;

// The settings page where the instructions the local model gets for every scan of the open folder are
// rewritten, tried on the scan selected in the main window without storing anything, and saved,
// optionally asking the model again about every scan it filed. The text being edited is the page's own
// until saved.
class PromptSettingsView : public QWidget {
    Q_OBJECT
public:
    explicit PromptSettingsView(Library &library, QWidget *parent = nullptr);

    // Loads the open folder's current instructions into the editor, dropping an unsaved draft and the
    // last trial's result.
    void reload();

    // Where the model runs, as the explanation names it: "this computer" when the server is on a
    // loopback or unspecified address, localhost, or `localHostName`; otherwise the server's host.
    static QString modelLocation(const QUrl &server, const QString &localHostName);

protected:
    void showEvent(QShowEvent *event) override;

private:
    // What the last trial came to: the model's answer as rows, or why there is none.
    struct Result {
        QStringList rows;
        bool failed = false;
    };

    QWidget *makeEditor();
    QWidget *makeResultPanel();
    void showFolder();
    void refreshExplanation();
    void refreshStatus();
    void refreshControls();
    void refreshResult();
    void readCount();
    void tryIt();
    void save(bool reextract);
    // The scan a trial would run on: exactly one selected, with its text read.
    std::optional<std::int64_t> selectedScan() const;
    QString currentInstructions() const;
    QString draft() const;

    Library &library_;
    std::optional<QString> loadedFor_;
    // The current instructions when the draft was loaded, to tell an untouched draft.
    QString loadedText_;
    bool trying_ = false;
    std::optional<Result> result_;
    int reextractCount_ = 0;
    // Bumped on every load, so that answers for an earlier folder or draft are dropped.
    int generation_ = 0;
    bool countInFlight_ = false;
    bool countAgain_ = false;

    QStackedLayout *stack_ = nullptr;
    EmptyState *empty_ = nullptr;
    QWidget *content_ = nullptr;
    ToneLabel *explanation_ = nullptr;
    QPlainTextEdit *editor_ = nullptr;
    ToneLabel *status_ = nullptr;
    QPushButton *restore_ = nullptr;
    QPushButton *try_ = nullptr;
    QProgressBar *progress_ = nullptr;
    QPushButton *save_ = nullptr;
    QPushButton *saveAndReextract_ = nullptr;
    QFrame *resultPanel_ = nullptr;
    QLabel *resultIcon_ = nullptr;
    ToneLabel *resultTitle_ = nullptr;
    ToneLabel *resultDetail_ = nullptr;
    QToolButton *copy_ = nullptr;
};
