#include "ui/ModelSettingsPage.h"

#include "core/Cancellation.h"
#include "extract/model/ModelServerClient.h"
#include "extract/model/ModelSettings.h"
#include "library/Library.h"
#include "library/SerialExecutor.h"
#include "ui/Icons.h"
#include "ui/ToneLabel.h"

#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QSettings>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

using Extractor::ModelSettings;

namespace {

// What a person would otherwise wait for: the server is asked this long after typing stops.
constexpr int typingPause = 500;

QString plural(qsizetype count, const QString &noun)
{
    return QString::number(count) + u' ' + noun + (count == 1 ? QString() : QStringLiteral("s"));
}

} // namespace

ModelSettingsPage::ModelSettingsPage(Library &library, QWidget *parent)
    : QWidget(parent)
    , library_(library)
    , executor_(std::make_unique<SerialExecutor>())
{
    setObjectName(QStringLiteral("modelSettingsPage"));

    server_ = new QLineEdit(this);
    server_->setObjectName(QStringLiteral("modelServerField"));
    server_->setAccessibleName(QStringLiteral("Model server"));
    server_->setPlaceholderText(ModelSettings::defaultServer);
    server_->setClearButtonEnabled(true);
    serverNote_ = new ToneLabel(ToneLabel::Tone::secondary, ToneLabel::Size::caption, this);
    serverNote_->setObjectName(QStringLiteral("modelServerNote"));
    serverNote_->setWordWrap(true);

    model_ = new QComboBox(this);
    model_->setObjectName(QStringLiteral("modelNameField"));
    model_->setAccessibleName(QStringLiteral("Model"));
    model_->setEditable(true);
    model_->setInsertPolicy(QComboBox::NoInsert);
    model_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    model_->setMinimumContentsLength(24);
    model_->lineEdit()->setPlaceholderText(ModelSettings::defaultModel);
    model_->lineEdit()->setAccessibleName(QStringLiteral("Model"));

    context_ = new QSpinBox(this);
    context_->setObjectName(QStringLiteral("modelContextField"));
    context_->setAccessibleName(QStringLiteral("Context size"));
    context_->setRange(512, 1048576);
    context_->setSingleStep(1024);
    context_->setSuffix(QStringLiteral(" tokens"));
    context_->setGroupSeparatorShown(true);
    contextNote_ = new ToneLabel(ToneLabel::Tone::secondary, ToneLabel::Size::body, this);
    contextNote_->setObjectName(QStringLiteral("modelContextNote"));
    contextNote_->setText(QStringLiteral("Set by the server"));
    auto *contextRow = new QHBoxLayout;
    contextRow->setContentsMargins(0, 0, 0, 0);
    contextRow->addWidget(context_);
    contextRow->addWidget(contextNote_);
    contextRow->addStretch();

    statusIcon_ = new QLabel(this);
    statusIcon_->setFixedSize(16, 16);
    status_ = new ToneLabel(ToneLabel::Tone::normal, ToneLabel::Size::body, this);
    status_->setObjectName(QStringLiteral("modelStatus"));
    status_->setWordWrap(true);
    status_->makeSelectable();
    status_->setAccessibleName(QStringLiteral("Local model status"));
    auto *statusRow = new QHBoxLayout;
    statusRow->setContentsMargins(0, 0, 0, 0);
    statusRow->addWidget(statusIcon_, 0, Qt::AlignTop);
    statusRow->addWidget(status_, 1);

    auto *serverColumn = new QVBoxLayout;
    serverColumn->setContentsMargins(0, 0, 0, 0);
    serverColumn->setSpacing(2);
    serverColumn->addWidget(server_);
    serverColumn->addWidget(serverNote_);

    auto *form = new QFormLayout;
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    form->addRow(QStringLiteral("Model server:"), serverColumn);
    form->addRow(QStringLiteral("Model:"), model_);
    form->addRow(QStringLiteral("Context size:"), contextRow);
    form->addRow(QStringLiteral("Status:"), statusRow);

    revert_ = new QPushButton(QStringLiteral("Revert"), this);
    revert_->setObjectName(QStringLiteral("revertModelSettings"));
    revert_->setToolTip(QStringLiteral("Show the settings in use again"));
    apply_ = new QPushButton(QStringLiteral("Apply"), this);
    apply_->setObjectName(QStringLiteral("applyModelSettings"));
    apply_->setToolTip(QStringLiteral("Use this model from now on"));
    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(revert_);
    buttons->addWidget(apply_);

    auto *title = new ToneLabel(ToneLabel::Tone::normal, ToneLabel::Size::headline, this);
    title->setText(QStringLiteral("Local Model"));
    auto *about = new ToneLabel(ToneLabel::Tone::secondary, ToneLabel::Size::callout, this);
    about->setWordWrap(true);
    about->setText(QStringLiteral("Scans are filed by a model server you run: Ollama, or any OpenAI-compatible "
                                  "server such as llama.cpp's. The same settings are used by vellumark-cli."));

    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(20, 20, 20, 20);
    column->addWidget(title);
    column->addWidget(about);
    column->addSpacing(6);
    column->addLayout(form);
    column->addStretch();
    column->addLayout(buttons);

    typing_ = new QTimer(this);
    typing_->setSingleShot(true);
    typing_->setInterval(typingPause);
    connect(typing_, &QTimer::timeout, this, &ModelSettingsPage::probe);
    connect(server_, &QLineEdit::textChanged, this, [this] {
        garbage_ = false;
        edited();
    });
    connect(model_, &QComboBox::editTextChanged, this, &ModelSettingsPage::edited);
    connect(context_, &QSpinBox::valueChanged, this, &ModelSettingsPage::refreshButtons);
    connect(revert_, &QPushButton::clicked, this, &ModelSettingsPage::reload);
    connect(apply_, &QPushButton::clicked, this, &ModelSettingsPage::apply);
    reload();
}

ModelSettingsPage::~ModelSettingsPage()
{
    if (probing_)
        probing_->request_stop();
}

ModelSettings ModelSettingsPage::shown() const
{
    const QString server = server_->text().trimmed();
    const QString model = model_->currentText().trimmed();
    ModelSettings settings;
    settings.server = ModelSettings::serverUrl(server.isEmpty() ? ModelSettings::defaultServer : server);
    settings.model = model.isEmpty() ? ModelSettings::defaultModel : model;
    settings.contextTokens = context_->value();
    return settings;
}

void ModelSettingsPage::reload()
{
    const QSettings stored;
    const ModelSettings settings = ModelSettings::load();
    {
        const QSignalBlocker blockServer(server_);
        const QSignalBlocker blockModel(model_);
        const QSignalBlocker blockContext(context_);
        server_->setText(stored.value(ModelSettings::serverKey).toString().trimmed());
        model_->setEditText(settings.model);
        context_->setValue(int(std::clamp<qint64>(settings.contextTokens, context_->minimum(), context_->maximum())));
    }
    garbage_ = false;
    typing_->stop();
    probe();
}

void ModelSettingsPage::edited()
{
    ++generation_;
    if (probing_)
        probing_->request_stop();
    probing_.reset();
    typing_->stop();
    if (const std::optional<QString> problem = ModelSettings::serverProblem(server_->text())) {
        showStatus(*problem, false);
        showKind(std::nullopt);
        serverNote_->clear();
    } else {
        typing_->start();
    }
    refreshButtons();
}

void ModelSettingsPage::probe()
{
    if (ModelSettings::serverProblem(server_->text())) {
        edited();
        return;
    }
    const int generation = ++generation_;
    if (probing_)
        probing_->request_stop();
    const std::stop_source stop;
    probing_ = stop;
    showStatus(QStringLiteral("Asking the model server…"), true);
    status_->setTone(ToneLabel::Tone::secondary);
    statusIcon_->setPixmap(Icons::symbol(QStringLiteral("hourglass")).pixmap(16, 16));
    using Offer = Extractor::ModelServerClient::Offer;
    QFuture<Offer> asked
        = executor_->run([settings = shown(), token = stop.get_token()] { return settings.client()->offer(token); });
    [](QPointer<ModelSettingsPage> self, int generation, QFuture<Offer> asked) -> QCoro::Task<> {
        std::optional<Offer> offer;
        try {
            offer = co_await asked;
        } catch (...) {
            // Stopped: a newer choice is being asked about, or the page is gone.
        }
        if (!self || self->generation_ != generation || !offer)
            co_return;
        self->probing_.reset();
        self->garbage_ = offer->listProblem.has_value();
        self->fillModels(offer->models);
        self->showKind(offer->kind);
        if (offer->listProblem) {
            self->serverNote_->setTone(ToneLabel::Tone::orange);
            self->serverNote_->setText(*offer->listProblem);
        } else if (offer->kind) {
            self->serverNote_->setTone(ToneLabel::Tone::secondary);
            self->serverNote_->setText(Extractor::serverKindName(*offer->kind) + QStringLiteral(" with ")
                + plural(offer->models.size(), QStringLiteral("model")));
        } else {
            self->serverNote_->clear();
        }
        const Extractor::Availability &availability = offer->availability;
        self->showStatus(availability.available
                ? QStringLiteral("Local model available")
                : QStringLiteral("Local model unavailable: ") + availability.problem.value_or(QString()),
            availability.available);
        self->refreshButtons();
    }(this, generation, std::move(asked));
}

void ModelSettingsPage::showStatus(const QString &text, bool good)
{
    status_->setText(text);
    status_->setTone(good ? ToneLabel::Tone::normal : ToneLabel::Tone::orange);
    statusIcon_->setPixmap(
        Icons::symbol(good ? QStringLiteral("checkmark.circle") : QStringLiteral("exclamationmark.triangle.fill"))
            .pixmap(16, 16));
}

void ModelSettingsPage::showKind(std::optional<Extractor::ServerKind> kind)
{
    // Only Ollama is told a context size; the others fix their own when they start.
    const bool others = kind == Extractor::ServerKind::openAICompatible;
    context_->setVisible(!others);
    context_->setEnabled(kind == Extractor::ServerKind::ollama);
    contextNote_->setVisible(others);
}

void ModelSettingsPage::fillModels(const QStringList &models)
{
    const QSignalBlocker block(model_);
    const QString typed = model_->currentText();
    model_->clear();
    model_->addItems(models);
    model_->setEditText(typed);
}

void ModelSettingsPage::refreshButtons()
{
    const ModelSettings stored = ModelSettings::load();
    const ModelSettings chosen = shown();
    const bool changed = chosen.server != stored.server || chosen.model != stored.model
        || chosen.contextTokens != stored.contextTokens;
    const bool usable = !ModelSettings::serverProblem(server_->text()) && !garbage_;
    apply_->setEnabled(changed && usable);
    revert_->setEnabled(changed);
}

void ModelSettingsPage::apply()
{
    if (ModelSettings::serverProblem(server_->text()) || garbage_)
        return;
    QSettings stored;
    const QString server = server_->text().trimmed();
    const QString model = model_->currentText().trimmed();
    if (server.isEmpty())
        stored.remove(ModelSettings::serverKey);
    else
        stored.setValue(ModelSettings::serverKey, server);
    if (model.isEmpty())
        stored.remove(ModelSettings::modelKey);
    else
        stored.setValue(ModelSettings::modelKey, model);
    stored.setValue(ModelSettings::contextKey, context_->value());
    stored.sync();
    library_.modelSettingsChanged();
    refreshButtons();
}
