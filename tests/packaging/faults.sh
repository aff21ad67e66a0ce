# Sourced by the packages' tests: they continue after a fault, so that one run reports all, and end with "$failed".
failed=0

fault() {
    echo "$*" >&2
    failed=1
}

# same <what> <expected> <found>
same() {
    diff -u --label expected --label found <(echo "$2") <(echo "$3") >&2 || fault "$1 is not as it should be"
}
