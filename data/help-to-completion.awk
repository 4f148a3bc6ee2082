# Turns vellumark-cli's --help text into its bash completion, filling a template:
#   awk -v template=COMPLETION.in -f help-to-completion.awk HELP.txt
# In the template, @COMMANDS@ becomes the commands' names and @CASES@ a case statement that sets, for the
# command being completed, its `options`, the options that take a `values`, the kinds of its
# `positionals` (folder, pdf, file or word; a last one ending in "..." repeats) and, after an option with
# a fixed set of values, its `choices`. Each command's synopsis is read from the "Commands:" section:
# "  NAME ARGUMENTS...   description", continued on lines indented by less than 12. Plain awk (mawk).

function flush(    count, i, token, closed, kind, option, word, positionals, options, values, choices, n, a) {
    if (term == "")
        return
    count = split(term, tokens, / +/)
    name = tokens[1]
    names = names == "" ? name : names " " name
    options = ""
    values = ""
    positionals = ""
    option = ""
    for (i = 2; i <= count; i++) {
        # An option takes a value when the value shares its brackets: "[--model NAME]", not "[--json]".
        token = tokens[i]
        closed = token ~ /\]$/
        gsub(/[][]/, "", token)
        if (token ~ /^--/) {
            options = options " " token
            option = closed ? "" : token
            continue
        }
        if (option != "") {
            # The value of the option before it, perhaps with an option instead ("NAME|--no-organization").
            values = values " " option
            if (token ~ /^[a-z][a-z0-9-]*(\|[a-z][a-z0-9-]*)+$/) {
                choices = token
                gsub(/\|/, " ", choices)
                cases_choices = cases_choices "    " name "/" option ") choices='" choices "' ;;\n"
            }
            n = split(token, alternatives, /\|/)
            for (a = 2; a <= n; a++)
                if (alternatives[a] ~ /^--/)
                    options = options " " alternatives[a]
            option = ""
            continue
        }
        word = token
        sub(/\.\.\.$/, "", word)
        if (word == "FOLDER")
            kind = "folder"
        else if (word ~ /\.pdf$/)
            kind = "pdf"
        else if (word ~ /PATH/)
            kind = "file"
        else
            kind = "word"
        positionals = positionals " " kind (token ~ /\.\.\.$/ ? "..." : "")
    }
    cases = cases "    " name ")\n        options='" substr(options, 2) "'\n        values='" substr(values, 2) \
        "'\n        positionals='" substr(positionals, 2) "'\n        ;;\n"
    term = ""
}

/^Commands:$/ {
    commands = 1
    next
}

!commands {
    next
}

/^  [a-z]/ {
    flush()
    term = substr($0, 3)
    if (match(term, /   */))
        term = substr(term, 1, RSTART - 1)
    next
}

/^   / {
    match($0, /^ +/)
    if (RLENGTH < 12 && term != "") {
        continued = $0
        sub(/^ +/, "", continued)
        term = term " " continued
    }
    next
}

{
    flush()
    if ($0 != "")
        commands = 0
}

END {
    flush()
    while ((getline line < template) > 0) {
        if (line == "@CASES@") {
            printf "    case $command in\n%s    esac\n", cases
            printf "    case $command/$previous in\n%s    esac\n", cases_choices
        } else {
            gsub(/@COMMANDS@/, names, line)
            print line
        }
    }
}
