# Makes a page that reads well in a web view of the repository fit for Doxygen: headings get the names that such a view
# gives them, and links between pages lead to those names. Input is the page whose path is given; `root` is the
# repository.

function pageName(path) {
    gsub(/[^A-Za-z0-9]/, "_", path)
    return "page_" path
}

function withoutDots(path,   parts, count, kept, i, whole) {
    count = split(path, parts, "/")
    kept = 0
    for (i = 1; i <= count; ++i) {
        if (parts[i] == ".." && kept > 0) --kept
        else if (parts[i] != "." && parts[i] != "") parts[++kept] = parts[i]
    }
    whole = ""
    for (i = 1; i <= kept; ++i) whole = whole (i > 1 ? "/" : "") parts[i]
    return whole
}

function anchor(heading) {
    heading = tolower(heading)
    gsub(/[^a-z0-9 _-]/, "", heading)
    gsub(/ /, "-", heading)
    return heading
}

function target(link,   at, file, section) {
    at = index(link, "#")
    section = at ? substr(link, at + 1) : ""
    file = at ? substr(link, 1, at - 1) : link
    file = file == "" ? page : withoutDots(folder file)
    return "@ref " pageName(file) (section == "" ? "" : "_" section)
}

function withReferences(line,   before, found, link) {
    before = ""
    while (match(line, /\]\([^)]*\)/)) {
        found = substr(line, RSTART + 2, RLENGTH - 3)
        if (found ~ /\.png$/) sub(/.*\//, "", found)
        else if (found ~ /^#/ || found ~ /\.md(#.*)?$/) found = target(found)
        before = before substr(line, 1, RSTART - 1) "](" found ")"
        line = substr(line, RSTART + RLENGTH)
    }
    return before line
}

FNR == 1 {
    page = withoutDots(substr(FILENAME, length(root) + 2))
    folder = page
    if (!sub(/[^\/]*$/, "", folder)) folder = ""
}
/^ *```/ { code = !code; print; next }
code || /^    / { print; next }
/^# / { print $0 " {#" pageName(page) "}"; next }
/^##+ / {
    heading = $0
    sub(/^#+ /, "", heading)
    print $0 " {#" pageName(page) "_" anchor(heading) "}"
    next
}
{ print withReferences($0) }
