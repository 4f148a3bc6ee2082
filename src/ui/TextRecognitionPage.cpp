#include "ui/TextRecognitionPage.h"

#include "library/Library.h"
#include "library/ReaderWorker.h"
#include "library/Recognition.h"
#include "ocr/OcrLanguages.h"
#include "ocr/TextQuality.h"
#include "ui/ToneLabel.h"
#include "ui/Tones.h"

#include <QDir>
#include <QEvent>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLocale>
#include <QPushButton>
#include <QSettings>
#include <QSpinBox>
#include <QThread>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>
#include <map>

namespace ReadingLanguages {

QStringList installed(const QString &folder)
{
    QStringList codes;
    for (const QString &file : QDir(folder).entryList({ QStringLiteral("*.traineddata") }, QDir::Files, QDir::Name)) {
        const QString code = file.chopped(int(std::char_traits<char>::length(".traineddata")));
        if (code != u"osd" && code != u"equ")
            codes << code;
    }
    return codes;
}

QString displayName(const QString &code)
{
    const QLocale::Language language = QLocale::codeToLanguage(code.section(u'_', 0, 0), QLocale::AnyLanguageCode);
    if (language == QLocale::AnyLanguage || language == QLocale::C)
        return code;
    return QLocale::languageToString(language) + u" (" + code + u')';
}

std::optional<QString> dictionaryPackage(const QString &code)
{
    // Debian's packages for the languages Tesseract reads that have a Hunspell dictionary.
    static const std::map<QString, QString> packages {
        { QStringLiteral("cat"), QStringLiteral("hunspell-ca") },
        { QStringLiteral("ces"), QStringLiteral("hunspell-cs") },
        { QStringLiteral("dan"), QStringLiteral("hunspell-da") },
        { QStringLiteral("deu"), QStringLiteral("hunspell-de-de") },
        { QStringLiteral("ell"), QStringLiteral("hunspell-el") },
        { QStringLiteral("eng"), QStringLiteral("hunspell-en-us") },
        { QStringLiteral("fra"), QStringLiteral("hunspell-fr") },
        { QStringLiteral("hun"), QStringLiteral("hunspell-hu") },
        { QStringLiteral("ita"), QStringLiteral("hunspell-it") },
        { QStringLiteral("nld"), QStringLiteral("hunspell-nl") },
        { QStringLiteral("nor"), QStringLiteral("hunspell-no") },
        { QStringLiteral("pol"), QStringLiteral("hunspell-pl") },
        { QStringLiteral("por"), QStringLiteral("hunspell-pt-pt") },
        { QStringLiteral("ron"), QStringLiteral("hunspell-ro") },
        { QStringLiteral("rus"), QStringLiteral("hunspell-ru") },
        { QStringLiteral("spa"), QStringLiteral("hunspell-es") },
        { QStringLiteral("swe"), QStringLiteral("hunspell-sv") },
        { QStringLiteral("tur"), QStringLiteral("hunspell-tr") },
        { QStringLiteral("ukr"), QStringLiteral("hunspell-uk") },
    };
    const auto found = packages.find(code);
    if (found == packages.end())
        return std::nullopt;
    return found->second;
}

QStringList common()
{
    return { QStringLiteral("eng"), QStringLiteral("deu"), QStringLiteral("fra"), QStringLiteral("spa"),
        QStringLiteral("ita"), QStringLiteral("nld"), QStringLiteral("por") };
}

} // namespace ReadingLanguages

namespace {

constexpr int codeRole = Qt::UserRole;

enum class Note { none, secondary, problem };

} // namespace

TextRecognitionPage::TextRecognitionPage(Library &library, QWidget *parent)
    : QWidget(parent)
    , library_(library)
{
    setObjectName(QStringLiteral("textRecognitionPage"));

    auto *about = new ToneLabel(ToneLabel::Tone::secondary, ToneLabel::Size::callout, this);
    about->setText(QStringLiteral("Pages are read in the languages checked; the first is the primary one. Each "
                                  "language's dictionary tells when a page was read upside down."));
    about->setWordWrap(true);

    problem_ = new ToneLabel(ToneLabel::Tone::orange, ToneLabel::Size::body, this);
    problem_->setObjectName(QStringLiteral("readingProblem"));
    problem_->setWordWrap(true);
    problem_->makeSelectable();

    languages_ = new QTreeWidget(this);
    languages_->setObjectName(QStringLiteral("readingLanguages"));
    languages_->setAccessibleName(QStringLiteral("Reading languages"));
    languages_->setColumnCount(2);
    languages_->setHeaderHidden(true);
    languages_->setRootIsDecorated(false);
    languages_->header()->setStretchLastSection(true);
    languages_->setUniformRowHeights(true);

    primary_ = new QPushButton(QStringLiteral("Make Primary"), this);
    primary_->setObjectName(QStringLiteral("makePrimaryLanguage"));
    primary_->setToolTip(QStringLiteral("Read pages in the selected language first"));
    auto *languageButtons = new QHBoxLayout;
    languageButtons->addWidget(primary_);
    languageButtons->addStretch();

    timeLimit_ = new QSpinBox(this);
    timeLimit_->setObjectName(QStringLiteral("readTimeLimit"));
    timeLimit_->setAccessibleName(QStringLiteral("Read time limit"));
    timeLimit_->setToolTip(QStringLiteral("A PDF that takes longer to open, or to read one page, isn't read"));
    timeLimit_->setRange(5, 3600);
    timeLimit_->setSingleStep(10);
    timeLimit_->setSuffix(QStringLiteral(" seconds"));
    timeLimit_->setKeyboardTracking(false);
    memoryLimit_ = new QSpinBox(this);
    memoryLimit_->setObjectName(QStringLiteral("readMemoryLimit"));
    memoryLimit_->setAccessibleName(QStringLiteral("Read memory limit"));
    memoryLimit_->setToolTip(QStringLiteral("A PDF that needs more memory to read isn't read"));
    memoryLimit_->setRange(256, 65536);
    memoryLimit_->setSingleStep(256);
    memoryLimit_->setSuffix(QStringLiteral(" MB"));
    memoryLimit_->setGroupSeparatorShown(true);
    memoryLimit_->setKeyboardTracking(false);
    readers_ = new QSpinBox(this);
    readers_->setObjectName(QStringLiteral("readingWorkers"));
    readers_->setAccessibleName(QStringLiteral("Scans read at once"));
    readers_->setToolTip(QStringLiteral(
        "Each scan read at once takes a processor core and about 150 MB of memory; this computer has %1 cores")
                             .arg(QThread::idealThreadCount()));
    readers_->setRange(1, ReadingWorkers::most);
    readers_->setKeyboardTracking(false);
    auto *limits = new QFormLayout;
    limits->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    limits->addRow(QStringLiteral("Time limit per page:"), timeLimit_);
    limits->addRow(QStringLiteral("Memory limit:"), memoryLimit_);
    limits->addRow(QStringLiteral("Scans read at once:"), readers_);

    auto *title = new ToneLabel(ToneLabel::Tone::normal, ToneLabel::Size::headline, this);
    title->setText(QStringLiteral("Text Recognition"));

    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(20, 20, 20, 20);
    column->addWidget(title);
    column->addWidget(about);
    column->addWidget(problem_);
    column->addWidget(languages_, 1);
    column->addLayout(languageButtons);
    column->addSpacing(8);
    column->addLayout(limits);

    connect(languages_, &QTreeWidget::itemChanged, this, &TextRecognitionPage::toggled);
    connect(languages_, &QTreeWidget::currentItemChanged, this, &TextRecognitionPage::refreshButtons);
    connect(primary_, &QPushButton::clicked, this, &TextRecognitionPage::makePrimary);
    connect(timeLimit_, &QSpinBox::valueChanged, this,
        [](int seconds) { QSettings().setValue(ReaderSettings::timeoutKey, seconds); });
    connect(memoryLimit_, &QSpinBox::valueChanged, this,
        [](int megabytes) { QSettings().setValue(ReaderSettings::memoryLimitKey, megabytes); });
    connect(readers_, &QSpinBox::valueChanged, this, [this](int count) {
        QSettings().setValue(ReadingWorkers::key, count);
        library_.readingSettingsChanged();
    });
    connect(&library_, &Library::ocrProblemChanged, this, &TextRecognitionPage::refreshProblem);
    reload();
}

void TextRecognitionPage::reload()
{
    chosen_ = OcrLanguages::setting().split(u'+', Qt::SkipEmptyParts);
    fill();
    const QSignalBlocker blockTime(timeLimit_);
    const QSignalBlocker blockMemory(memoryLimit_);
    const QSignalBlocker blockReaders(readers_);
    timeLimit_->setValue(int(std::lround(double(ReaderSettings::timeout().count()) / 1000)));
    memoryLimit_->setValue(ReaderSettings::memoryLimitMB());
    readers_->setValue(ReadingWorkers::setting());
    refreshProblem();
}

void TextRecognitionPage::changeEvent(QEvent *event)
{
    // The notes' colours follow the palette.
    if (event->type() == QEvent::PaletteChange && languages_ && !filling_)
        fill();
    QWidget::changeEvent(event);
}

void TextRecognitionPage::fill()
{
    const QStringList installed = ReadingLanguages::installed(OcrLanguages::dataFolder());
    QStringList others;
    for (const QString &code : installed + ReadingLanguages::common()) {
        if (!chosen_.contains(code) && !others.contains(code))
            others << code;
    }
    // Installed ones first, each group by name.
    std::stable_sort(others.begin(), others.end(), [&](const QString &left, const QString &right) {
        const bool leftInstalled = installed.contains(left);
        if (leftInstalled != installed.contains(right))
            return leftInstalled;
        return ReadingLanguages::displayName(left).localeAwareCompare(ReadingLanguages::displayName(right)) < 0;
    });
    const QTreeWidgetItem *current = languages_->currentItem();
    const QString currentCode = current ? current->data(0, codeRole).toString() : QString();

    filling_ = true;
    languages_->clear();
    for (const QString &code : chosen_ + others) {
        const bool chosen = chosen_.contains(code);
        const bool present = installed.contains(code);
        auto *item = new QTreeWidgetItem(languages_);
        item->setText(0, ReadingLanguages::displayName(code));
        item->setData(0, codeRole, code);
        item->setCheckState(0, chosen ? Qt::Checked : Qt::Unchecked);
        // A language without its data can be let go of, not taken up.
        if (present || chosen)
            item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
        else
            item->setFlags(Qt::ItemIsSelectable);
        QString note;
        Note tone = Note::secondary;
        if (!present) {
            // The whole sentence is above the list while the language is chosen.
            note = QStringLiteral("Not installed: ") + OcrLanguages::dataPackage(code);
            tone = chosen ? Note::problem : Note::secondary;
        } else if (TextQuality::dictionariesFor(code).isEmpty()) {
            const std::optional<QString> package = ReadingLanguages::dictionaryPackage(code);
            note = QStringLiteral("No dictionary to tell pages upside down")
                + (package ? QStringLiteral(": install ") + *package : QString());
            tone = Note::problem;
        } else if (chosen && code == chosen_.first()) {
            note = QStringLiteral("Primary language");
        }
        item->setText(1, note);
        item->setToolTip(1, note);
        item->setForeground(1, tone == Note::problem ? Tones::orange(palette()) : Tones::secondary(palette()));
        if (code == currentCode)
            languages_->setCurrentItem(item);
    }
    filling_ = false;
    // Measured from the names alone, the column would cut the longest short by the check box's spacing.
    languages_->resizeColumnToContents(0);
    languages_->setColumnWidth(0, languages_->columnWidth(0) + 2 * fontMetrics().averageCharWidth());
    refreshButtons();
}

void TextRecognitionPage::toggled(QTreeWidgetItem *item)
{
    if (filling_)
        return;
    const QString code = item->data(0, codeRole).toString();
    QStringList chosen = chosen_;
    if (item->checkState(0) == Qt::Checked) {
        if (!chosen.contains(code))
            chosen << code;
    } else if (chosen.size() > 1) {
        chosen.removeAll(code);
    }
    // Rebuilt after the view is done with the item it just changed.
    QMetaObject::invokeMethod(this, &TextRecognitionPage::fill, Qt::QueuedConnection);
    if (chosen != chosen_)
        store(chosen);
}

void TextRecognitionPage::makePrimary()
{
    const QTreeWidgetItem *item = languages_->currentItem();
    if (!item)
        return;
    QStringList chosen = chosen_;
    const QString code = item->data(0, codeRole).toString();
    if (chosen.removeAll(code) == 0)
        return;
    chosen.prepend(code);
    store(chosen);
    fill();
}

void TextRecognitionPage::store(const QStringList &chosen)
{
    chosen_ = chosen;
    QSettings().setValue(OcrLanguages::settingKey, chosen_.join(u'+'));
    library_.readingSettingsChanged();
    refreshProblem();
}

void TextRecognitionPage::refreshProblem()
{
    // What is wrong with the languages chosen, else why the last reading stopped for every scan.
    std::optional<QString> problem = OcrLanguages::problem(chosen_.join(u'+'));
    if (!problem)
        problem = library_.ocrProblem();
    problem_->setVisible(problem.has_value());
    problem_->setText(problem.value_or(QString()));
}

void TextRecognitionPage::refreshButtons()
{
    const QTreeWidgetItem *item = languages_->currentItem();
    const QString code = item ? item->data(0, codeRole).toString() : QString();
    primary_->setEnabled(chosen_.indexOf(code) > 0);
}
