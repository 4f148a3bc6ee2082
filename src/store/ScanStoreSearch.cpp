#include "store/ScanStore.h"

#include <QStringList>

QString ScanStore::searchQuery(const QString &text)
{
    QStringList terms;
    QString piece;
    const auto endPiece = [&] {
        if (piece.isEmpty())
            return;
        // Every word must start a word of some column: a quoted prefix term, quotes inside doubled.
        terms.append(
            QLatin1Char('"') + piece.replace(QLatin1Char('"'), QStringLiteral("\"\"")) + QStringLiteral("\"*"));
        piece.clear();
    };
    for (const QChar character : text) {
        if (character.isSpace())
            endPiece();
        else
            piece.append(character);
    }
    endPiece();
    return terms.join(QLatin1Char(' '));
}

std::set<std::int64_t> ScanStore::search(const QString &text)
{
    std::set<std::int64_t> ids;
    const QString query = searchQuery(text);
    if (query.isEmpty())
        return ids;
    Statement statement = db_->prepare(QStringLiteral("SELECT rowid FROM documents_fts WHERE documents_fts MATCH ?"));
    statement.bind({ query });
    while (statement.step())
        ids.insert(statement.int64(0));
    return ids;
}
