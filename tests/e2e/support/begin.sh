# The opening of every end-to-end script, sourced with the script's own
# arguments: the program (made absolute), a fresh work folder that becomes the
# current directory, and fail(), which a script may redefine.
program=$(realpath "$1")
work=$(realpath -m "$2")
rm -rf "$work"; mkdir -p "$work"; cd "$work"
fail() { echo "FAIL: $*" >&2; exit 1; }
