#!/bin/sh
# demo.sh [MAILBOX]: installs what is missing, builds the library and mailhost, and looks at mail with it:
# at your own mailbox (a flat mailbox file), or at the sample mail of examples/mail.  Nothing is changed there.
set -eu
top=$(cd "$(dirname "$0")" && pwd)
build=$top/build/demo

"$top/scripts/install-packages" build
jobs=$(nproc)
[ "$jobs" -le 2 ] || jobs=2    # a compiler takes up to 1 GB of memory
mkdir -p "$build"
# run_quietly command...: shows what it printed only when it fails.
run_quietly() {
    if ! "$@" >"$build/log" 2>&1; then
        cat "$build/log" >&2
        exit 1
    fi
}
[ -x "$build/examples/mailhost/mailhost" ] || echo "Building the library and mailhost; this takes a minute or two."
run_quietly cmake -S "$top" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DLORVALE_BUILD_TESTS=OFF
if [ -t 1 ]; then    # with the one line of progress that the build draws there
    cmake --build "$build" --target mailhost -j "$jobs"
else
    run_quietly cmake --build "$build" --target mailhost -j "$jobs"
fi
PATH=$build/examples/mailhost:$PATH

bold= plain=
if [ -t 1 ] && [ -z "${NO_COLOR-}" ]; then
    bold=$(printf '\033[1;36m') plain=$(printf '\033[0m')
fi
say() { printf '\n%s%s%s\n' "$bold" "$*" "$plain"; }
# Shows a command as one would type it, then what it prints.
try() {
    printf '\n%s$ %s%s\n' "$bold" "$*" "$plain"
    "$@" || :    # what a command has to complain about is part of the show
}
first_lines() {    # first_lines COUNT command...
    count=$1
    shift
    printf '\n%s$ %s | head -n %d%s\n' "$bold" "$*" "$count" "$plain"
    "$@" 2>&1 | head -n "$count"
}

if [ $# -gt 0 ]; then
    try mailhost info "$1"
    first_lines 21 mailhost list "$1" --sort received-date
    first_lines 40 mailhost show "$1" 1
    first_lines 3 mailhost list "$1" --json
    exit 0
fi

cd "$top"
say "Four sample mailboxes lie in examples/mail.  What is in the first?"
try mailhost info examples/mail/inbox
try mailhost list examples/mail/inbox
say "Whatever charset and encoding a message came in, it reads as it was written:"
try mailhost show examples/mail/inbox 2
try mailhost show examples/mail/inbox 5
try mailhost show examples/mail/inbox 7
say "A mailing list by subject, so that threads stand together:"
try mailhost list examples/mail/lists --sort subject
say "What did one sender write in March?  And which are the three largest of all?"
try mailhost list examples/mail/inbox --from weiss --since 2004-03 --until 2004-03
try mailhost list examples/mail/inbox --sort size --reverse --limit 3
say "Mail that breaks the rules lists all the same, and what it would do to the terminal
stays harmless:"
try mailhost list examples/mail/odd --sort from
try mailhost show examples/mail/odd 17
say "Which rules are broken?"
try mailhost check examples/mail/odd
say "A directory mailbox keeps a search index: the sample mail is imported, indexed and searched."
mail=$build/mailboxes  # the build itself has a folder "mail"
rm -rf "$mail" && mkdir -p "$mail"
for name in inbox lists archive-2003; do
    mailhost import "examples/mail/$name" "$mail/$name.mbox" >/dev/null
done
try mailhost index "$mail/inbox.mbox" "$mail/lists.mbox" "$mail/archive-2003.mbox"
try mailhost search "plan for rain" "$mail/inbox.mbox" "$mail/lists.mbox" "$mail/archive-2003.mbox" --max 5
try mailhost search --boolean "(ferry or train) not meeting" "$mail/inbox.mbox" --sort date
try mailhost search "concert on the pier" "$mail/inbox.mbox" --show --max 3
say "Mail that waits on a POP3 server is fetched, stands unread in Active.mbox, and is found at once:"
if command -v python3 >/dev/null; then
    mkfifo "$mail/running"    # the server ends with this shell, which keeps it open
    python3 examples/mail/serve_pop3.py examples/mail/lists <"$mail/running" >"$mail/port" &
    exec 3>"$mail/running"
    until [ -s "$mail/port" ]; do sleep 0.1; done
    mailhost new "$mail/Active.mbox" >/dev/null
    mailhost index "$mail/Active.mbox" >/dev/null
    try mailhost -o MailDir="$mail" fetch --pop "127.0.0.1:$(cat "$mail/port")" --user nora --password-command "echo secret"
    try mailhost list "$mail/Active.mbox" --unread --limit 5
    try mailhost search lunation "$mail/Active.mbox"
    exec 3>&-
else
    echo "(Left out: the server of this demo needs python3.)"
fi
say "And for programs, JSON:"
first_lines 3 mailhost list examples/mail/inbox --json
say "Your own mail:  ./demo.sh MAILBOX      All there is:  mailhost --help"
say "mailhost lies in build/demo/examples/mailhost; README.md goes on from here."
