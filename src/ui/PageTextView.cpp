#include "ui/PageTextView.h"

#include "library/Provenance.h"
#include "ui/Tones.h"

#include <QAbstractTextDocumentLayout>
#include <QEvent>
#include <QPointer>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>
#include <QTimer>

namespace {

// Enough pages to fill the pane at once, laid out in a few milliseconds; the rest follow in pieces of
// the same size.
constexpr int pagesPerStep = 6;
// A text this long takes long enough to lay out again that a resize step shouldn't wait for it.
constexpr int quickLayoutCharacters = 20'000;

} // namespace

PageTextView::PageTextView(QWidget *parent)
    : QTextBrowser(parent)
{
    setObjectName(QStringLiteral("recognizedText"));
    setAccessibleName(QStringLiteral("Recognized Text"));
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    setOpenLinks(false);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    setUndoRedoEnabled(false);
    viewport()->setAutoFillBackground(false);
    document()->setDocumentMargin(0);
    setLineWrapMode(QTextEdit::FixedPixelWidth);
    widthSettled_.setSingleShot(true);
    widthSettled_.setInterval(150);
    connect(&widthSettled_, &QTimer::timeout, this, &PageTextView::followWidth);
    connect(document()->documentLayout(), &QAbstractTextDocumentLayout::documentSizeChanged, this,
        &PageTextView::fitHeight);
}

void PageTextView::setPages(QStringList pages, int pageCount, std::vector<int> rotations)
{
    pages_ = std::move(pages);
    pageCount_ = pageCount;
    rotations_ = std::move(rotations);
    rebuild();
}

void PageTextView::rebuild()
{
    ++generation_;
    added_ = 0;
    clear();
    QFont callout = font();
    callout.setPointSizeF(callout.pointSizeF() * 0.93);
    document()->setDefaultFont(callout);
    addPages();
}

void PageTextView::addPages()
{
    const QColor secondary = Tones::secondary(palette());
    QTextCharFormat captionFormat;
    captionFormat.setFontWeight(QFont::Bold);
    captionFormat.setForeground(secondary);
    // Without a colour of its own, the text takes the palette's.
    const QTextCharFormat textFormat;
    QTextCharFormat blankFormat;
    blankFormat.setForeground(secondary);
    QTextBlockFormat first;
    QTextBlockFormat spaced;
    spaced.setTopMargin(10);

    QTextCursor cursor(document());
    cursor.movePosition(QTextCursor::End);
    const qsizetype end = std::min(pages_.size(), added_ + pagesPerStep);
    for (; added_ < end; ++added_) {
        const int index = int(added_);
        const auto block
            = [&](const QTextBlockFormat &format, const QTextCharFormat &chars, const QString &text, BlockKind kind) {
                  if (cursor.position() == 0 && cursor.block().text().isEmpty())
                      cursor.setBlockFormat(format);
                  else
                      cursor.insertBlock(format);
                  cursor.insertText(text, chars);
                  cursor.block().setUserState(kind);
              };
        const QString caption = pageCaption(index, pageCount_, rotations_);
        if (!caption.isEmpty())
            block(index == 0 ? first : spaced, captionFormat, caption, BlockKind::caption);
        const QString &text = pages_.at(index);
        const QTextBlockFormat &format = caption.isEmpty() && index > 0 ? spaced : first;
        if (text.isEmpty()) {
            block(format, blankFormat, QStringLiteral("(blank)"), BlockKind::blank);
        } else {
            // One block per page, its lines kept as line breaks within it.
            QString lines = text;
            lines.replace(QLatin1Char('\n'), QChar::LineSeparator);
            block(format, textFormat, lines, BlockKind::text);
        }
    }
    if (added_ < pages_.size()) {
        QTimer::singleShot(0, this, [this, generation = generation_] {
            if (generation == generation_)
                addPages();
        });
    }
}

void PageTextView::fitHeight()
{
    const int height = int(std::ceil(document()->size().height())) + 2;
    if (height != this->height()) {
        setFixedHeight(height);
        updateGeometry();
    }
}

QSize PageTextView::sizeHint() const
{
    return { QTextBrowser::sizeHint().width(), int(std::ceil(document()->size().height())) + 2 };
}

QSize PageTextView::minimumSizeHint() const
{
    return { 0, sizeHint().height() };
}

void PageTextView::resizeEvent(QResizeEvent *event)
{
    QTextBrowser::resizeEvent(event);
    verticalScrollBar()->setValue(0);
    if (viewport()->width() == lineWrapColumnOrWidth())
        return;
    if (document()->characterCount() < quickLayoutCharacters)
        followWidth();
    else
        widthSettled_.start();
}

void PageTextView::followWidth()
{
    setLineWrapColumnOrWidth(viewport()->width());
}

void PageTextView::changeEvent(QEvent *event)
{
    QTextBrowser::changeEvent(event);
    if (event->type() == QEvent::FontChange)
        rebuild();
    else if (event->type() == QEvent::PaletteChange)
        recolour();
}

void PageTextView::recolour()
{
    QTextCharFormat secondary;
    secondary.setForeground(Tones::secondary(palette()));
    for (QTextBlock block = document()->begin(); block.isValid(); block = block.next()) {
        if (block.userState() != BlockKind::caption && block.userState() != BlockKind::blank)
            continue;
        QTextCursor cursor(block);
        cursor.movePosition(QTextCursor::EndOfBlock, QTextCursor::KeepAnchor);
        cursor.mergeCharFormat(secondary);
    }
}

QStringList PageTextView::captions() const
{
    return blocks(BlockKind::caption);
}

QStringList PageTextView::pageTexts() const
{
    return blocks(BlockKind::text);
}

QStringList PageTextView::blocks(BlockKind kind) const
{
    QStringList found;
    for (QTextBlock block = document()->begin(); block.isValid(); block = block.next()) {
        if (block.userState() == kind || (kind == BlockKind::text && block.userState() == BlockKind::blank))
            found << block.text().replace(QChar::LineSeparator, QLatin1Char('\n'));
    }
    return found;
}
