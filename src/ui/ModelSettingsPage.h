#pragma once

#include "extract/model/LanguageModel.h"

#include <QWidget>

#include <memory>
#include <optional>
#include <stop_token>

class Library;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;
class QTimer;
class SerialExecutor;
class ToneLabel;

namespace Extractor {
struct ModelSettings;
}

// The settings page of the local model: the server, the model, the context to ask Ollama for, and what
// the status bar would say about that choice, asked of the server in the background a moment after
// typing stops. Nothing is stored until Apply; then the open folder turns to the new model at once.
class ModelSettingsPage : public QWidget {
    Q_OBJECT
public:
    explicit ModelSettingsPage(Library &library, QWidget *parent = nullptr);
    ~ModelSettingsPage() override;

    // Shows the stored settings again, dropping what was typed, and asks the server about them.
    void reload();

private:
    // The settings the fields show, as they would be loaded once stored.
    Extractor::ModelSettings shown() const;
    void edited();
    void probe();
    void showStatus(const QString &text, bool good);
    void showKind(std::optional<Extractor::ServerKind> kind);
    void fillModels(const QStringList &models);
    void refreshButtons();
    void apply();

    Library &library_;
    QLineEdit *server_;
    ToneLabel *serverNote_;
    QComboBox *model_;
    QSpinBox *context_;
    ToneLabel *contextNote_;
    QLabel *statusIcon_;
    ToneLabel *status_;
    QPushButton *revert_;
    QPushButton *apply_;
    QTimer *typing_;
    // The server shown answered with something that isn't a model server's answer.
    bool garbage_ = false;
    // Raised by every edit and probe, so that the answer of a stale probe is dropped.
    int generation_ = 0;
    std::optional<std::stop_source> probing_;
    // Last: its destructor waits for the probe under way, which the stop ends at once.
    std::unique_ptr<SerialExecutor> executor_;
};
