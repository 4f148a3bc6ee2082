#pragma once

#include <QString>

#include <functional>
#include <optional>

class QDialog;
class QWidget;

// Where the app asks the person something: the folder chooser and every dialog. Tests answer instead,
// seeing the same dialogs with the same texts.
struct Prompts {
    // The folder chosen, starting in `startIn`; absent when cancelled.
    std::function<std::optional<QString>(QWidget *parent, const QString &startIn)> chooseFolder;
    // Runs the dialog to its end and gives its result (QDialog::Accepted or Rejected).
    std::function<int(QDialog &dialog)> run;

    // The desktop's folder chooser and modal dialogs.
    static Prompts interactive();
};
