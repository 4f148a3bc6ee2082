# Turns a program's --help text into the parts of its manual page, and fills them into a template:
#   awk -v name=PROGRAM -v template=PAGE.in -v version=X.Y.Z -f help-to-man.awk HELP.txt
# In the template, @SYNOPSIS@ becomes the usage line, @SECTIONS@ every "Title:" section of the help (its
# entries as tagged paragraphs) and a closing "Exit status: ..." paragraph, and @VERSION@ the version.
# The help is expected as the programs print it: entries indented by two spaces, their description after
# a gap of two or more spaces or on lines indented by 12 or more, their synopsis continued on lines
# indented by less. Plain awk (Debian's is mawk).

function escape(text) {
    gsub(/\\/, "\\e", text)
    gsub(/^[.']/, "\\\\\\&&", text)
    return text
}

# Options in bold, placeholders (FOLDER, FILE.pdf, YYYY-MM-DD) in italics when asked, the rest as it is.
# Both only as whole words: "needs-review" holds no option, "SHA-256" no placeholder.
function markup(text, italic_placeholders,    out, token) {
    text = " " escape(text)
    out = ""
    while (match(text, /[^A-Za-z0-9_-](--?[a-zA-Z?][a-zA-Z0-9-]*|[A-Z][A-Z-]*[A-Z](\.[a-z]+)?)/)) {
        token = substr(text, RSTART + 1, RLENGTH - 1)
        out = out substr(text, 1, RSTART)
        if (token ~ /^-/) {
            gsub(/-/, "\\-", token)
            out = out "\\fB" token "\\fR"
        } else if (italic_placeholders) {
            out = out "\\fI" token "\\fR"
        } else {
            out = out token
        }
        text = substr(text, RSTART + RLENGTH)
    }
    return substr(out text, 2)
}

function flush_entry() {
    if (term == "")
        return
    # A command in bold, a positional argument in italics, like the placeholders.
    if (match(term, /^[a-z][a-z0-9-]*/)) {
        font = title == "ARGUMENTS" ? "\\fI" : "\\fB"
        term = font substr(term, 1, RLENGTH) "\\fR" markup(substr(term, RLENGTH + 1), 1)
    } else {
        term = markup(term, 1)
    }
    sections = sections ".TP\n" term "\n"
    if (description != "")
        sections = sections markup(description, 0) "\n"
    term = ""
    description = ""
}

function add_description(text) {
    sub(/^ +/, "", text)
    description = description == "" ? text : description "\n" text
}

BEGIN {
    part = "preamble"
}

/^Usage: / {
    line = substr($0, 8)
    # The program as it was started (a path in a build tree) is named by its name alone.
    sub(/^[^ ]+ */, "", line)
    program = name
    gsub(/-/, "\\-", program)
    synopsis = "\\fB" program "\\fR " markup(line, 1)
    part = "usage"
    next
}

/^$/ {
    flush_entry()
    if (part == "paragraph")
        part = "section"
    next
}

/^[A-Z][A-Za-z ]*:$/ {
    flush_entry()
    title = toupper(substr($0, 1, length($0) - 1))
    sections = sections ".SH " title "\n"
    part = "section"
    next
}

/^Exit status: / {
    flush_entry()
    sections = sections ".SH EXIT STATUS\n" markup(substr($0, 14), 0) "\n"
    part = "paragraph"
    next
}

/^  [^ ]/ && (part == "section" || part == "entry") {
    flush_entry()
    line = substr($0, 3)
    gap = match(line, /   */)
    if (gap) {
        term = substr(line, 1, RSTART - 1)
        add_description(substr(line, RSTART + RLENGTH))
    } else {
        term = line
    }
    part = "entry"
    next
}

/^   / && part == "entry" {
    match($0, /^ +/)
    if (RLENGTH >= 12) {
        add_description($0)
    } else {
        continued = $0
        sub(/^ +/, "", continued)
        term = term " " continued
    }
    next
}

# The program's description after the usage line: the page says it in its own words.
part == "usage" || part == "preamble" {
    next
}

part == "paragraph" {
    sections = sections markup($0, 0) "\n"
    next
}

{
    flush_entry()
    sections = sections ".PP\n" markup($0, 0) "\n"
    part = "paragraph"
}

END {
    flush_entry()
    while ((getline line < template) > 0) {
        if (line == "@SYNOPSIS@") {
            printf "%s\n", synopsis
        } else if (line == "@SECTIONS@") {
            printf "%s", sections
        } else {
            gsub(/@VERSION@/, version, line)
            print line
        }
    }
}
