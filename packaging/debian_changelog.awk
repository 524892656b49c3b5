# debian_changelog.awk: CHANGELOG.md as the changelog of a Debian package.
#
#   awk -v package=NAME -v maintainer='NAME <ADDRESS>' -f debian_changelog.awk CHANGELOG.md
#
# "## VERSION, DATE" begins a release, "- " an entry, which lines with two blanks in front go on with: lines of at most 76.
function sign() {
    if (date == "") return
    command = "LC_ALL=C date -u -R -d " date
    command | getline day
    close(command)
    printf "\n -- %s  %s\n\n", maintainer, day
}
/^## / {
    sign()
    version = substr($2, 1, length($2) - 1)
    date = $3
    printf "%s (%s) stable; urgency=medium\n\n", package, version
    next
}
date == "" { next }
/^- / { print "  * " substr($0, 3) }
/^  [^ ]/ { print "  " $0 }
END { sign() }
