#pragma once

#include <QStringList>
#include <QTextBrowser>
#include <QTimer>

#include <vector>

// The recognized text of a scan, page by page, as one selectable text: each page under its caption (its
// number and the way it was scanned) or "(blank)". Sized to its whole text, for a scrolling pane to hold.
// A long scan's pages are added a few at a time between turns of the event loop, each addition laid out
// on its own, and a long text follows a new width only once the width has settled, so that hundreds of
// pages never hold up the window while it is resized.
class PageTextView : public QTextBrowser {
    Q_OBJECT
public:
    explicit PageTextView(QWidget *parent = nullptr);

    void setPages(QStringList pages, int pageCount, std::vector<int> rotations);
    // What is shown so far, block by block: the captions, and the pages' texts.
    QStringList captions() const;
    QStringList pageTexts() const;
    // Whether every page has been added.
    bool isComplete() const { return added_ == pages_.size(); }

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void changeEvent(QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    enum BlockKind { caption = 1, text, blank };

    void rebuild();
    // Captions and blank pages in the palette's secondary colour, text in its text colour.
    void recolour();
    void addPages();
    void fitHeight();
    // Lays the text out again at the view's width.
    void followWidth();
    QStringList blocks(BlockKind kind) const;

    QStringList pages_;
    int pageCount_ = 0;
    std::vector<int> rotations_;
    qsizetype added_ = 0;
    int generation_ = 0;
    QTimer widthSettled_;
};
