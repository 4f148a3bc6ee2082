#pragma once

#include "support/ScanPdf.h"

#include <QStringList>

// A typed business letter for the reading benchmarks: `lines` lines of ordinary prose at 11 pt, the
// page turned by `turned` degrees.
inline ScanPage letterPage(int lines, int turned = 0)
{
    static const QStringList prose {
        QStringLiteral("Thank you for your letter of the twelfth, which reached our office on Monday."),
        QStringLiteral("We have reviewed the account statement you enclosed and the payments listed"),
        QStringLiteral("for the months of January, February and March. The amount shown as overdue"),
        QStringLiteral("was received by our bank on the third of April and has now been credited to"),
        QStringLiteral("your customer account. No further action is required on your part, and any"),
        QStringLiteral("reminder you may receive in the coming days can safely be ignored. Should you"),
        QStringLiteral("have questions about this or any other invoice, please call our service team"),
        QStringLiteral("between nine and five on weekdays, or write to the address printed below."),
    };
    ScanPage page;
    page.fontSize = 11;
    page.turned = turned;
    for (int line = 0; line < lines; ++line)
        page.lines << prose[line % prose.size()];
    return page;
}
