# Prints the first plain Debian mirror found in apt's source lists, in either of their two formats.

function judge_stanza() {
    if (!found && uri != "" && suites !~ /security/ && enabled && uri ~ /^https?:.*\/debian\/?$/) { found = uri }
    uri = ""; suites = ""; enabled = 1
}

FNR == 1 { judge_stanza() }
/^#/ { next }
/^[ \t]*$/ { judge_stanza(); next }
/^URIs:/ { uri = $2 }
/^Suites:/ { suites = $0 }
/^Enabled:[ \t]*no/ { enabled = 0 }
$1 == "deb" {
    address = 2
    if ($2 ~ /^\[/) { while ($address !~ /\]$/ && address < NF) address++; address++ }
    if (!found && $address ~ /^https?:.*\/debian\/?$/ && / main/) { found = $address }
}
END { judge_stanza(); if (found) print found }
