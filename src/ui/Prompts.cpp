#include "ui/Prompts.h"

#include <QDialog>
#include <QFileDialog>

Prompts Prompts::interactive()
{
    Prompts prompts;
    prompts.chooseFolder = [](QWidget *parent, const QString &startIn) -> std::optional<QString> {
        QFileDialog dialog(parent,
            QStringLiteral("Choose the folder your scanner saves PDFs to. Vellumark keeps its database there and "
                           "never modifies the PDFs."),
            startIn);
        dialog.setFileMode(QFileDialog::Directory);
        dialog.setOption(QFileDialog::ShowDirsOnly);
        dialog.setLabelText(QFileDialog::Accept, QStringLiteral("Open"));
        if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
            return std::nullopt;
        return dialog.selectedFiles().constFirst();
    };
    prompts.run = [](QDialog &dialog) { return dialog.exec(); };
    return prompts;
}
