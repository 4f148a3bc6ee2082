#pragma once

#include <QString>
#include <QStringList>
#include <QWidget>

#include <optional>

class Library;
class QPushButton;
class QSpinBox;
class QTreeWidget;
class QTreeWidgetItem;
class ToneLabel;

// Tesseract's languages as the settings show them.
namespace ReadingLanguages {

// The languages whose data is installed in `folder`, by code, in order; not the page-orientation and
// equation data, which read no language.
QStringList installed(const QString &folder);
// "German (deu)"; the code alone where the language isn't known.
QString displayName(const QString &code);
// The Debian package with the language's Hunspell dictionary, where one is known.
std::optional<QString> dictionaryPackage(const QString &code);
// Languages worth offering even before their data is installed.
QStringList common();

} // namespace ReadingLanguages

// The settings page of text recognition: the languages pages are read in, chosen among those installed
// (the first chosen is the main one), and the limits of one reading. Each change is stored at once
// and takes effect from the next scan read.
class TextRecognitionPage : public QWidget {
    Q_OBJECT
public:
    explicit TextRecognitionPage(Library &library, QWidget *parent = nullptr);

    // Shows the stored settings and the languages installed now.
    void reload();

protected:
    void changeEvent(QEvent *event) override;

private:
    void fill();
    void toggled(QTreeWidgetItem *item);
    void makePrimary();
    void store(const QStringList &chosen);
    void refreshProblem();
    void refreshButtons();

    Library &library_;
    QStringList chosen_;
    ToneLabel *problem_ = nullptr;
    QTreeWidget *languages_ = nullptr;
    QPushButton *primary_ = nullptr;
    QSpinBox *timeLimit_ = nullptr;
    QSpinBox *memoryLimit_ = nullptr;
    QSpinBox *readers_ = nullptr;
    bool filling_ = false;
};
