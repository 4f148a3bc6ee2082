#pragma once

#include <QString>

#include <optional>

class Library;

// The texts of the main window's status bar, left to right. Icons are symbol names the views map to icons.
struct StatusLine {
    // "Reading text: 3 left · Reading a.pdf", or "Up to date".
    QString work;
    QString workIcon;
    // "Paused: 2 to read, 1 to extract"; absent while not paused.
    std::optional<QString> paused;
    QString pausedIcon;
    // "3 more you asked for"; absent when no requested scans remain.
    std::optional<QString> requested;
    QString requestedHelp;
    // Why organizations and dates are on hold, or that a busy model is waited for; absent otherwise.
    std::optional<QString> model;
    QString modelIcon, modelHelp;

    bool operator==(const StatusLine &) const = default;
};

StatusLine statusLine(const Library &library);
