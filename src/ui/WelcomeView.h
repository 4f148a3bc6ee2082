#pragma once

#include <QWidget>

class Library;
class QLabel;
class QPushButton;

// What shows while no folder is open: what Vellumark does, the button that opens the remembered folder
// or chooses one, and why the last open failed.
class WelcomeView : public QWidget {
    Q_OBJECT
public:
    explicit WelcomeView(Library &library, QWidget *parent = nullptr);

Q_SIGNALS:
    // Either button: the folder chooser should open.
    void chooseFolderRequested();

protected:
    void changeEvent(QEvent *event) override;

private:
    void refresh();
    void recolour();

    Library &library_;
    QPushButton *openLast_;
    QPushButton *chooseOther_;
    QPushButton *choose_;
    QLabel *intro_;
    QLabel *error_;
    QLabel *footer_;
};
