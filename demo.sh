#!/usr/bin/env bash
# Builds the system and shows what it does, on an invented product's data in a store of its own:
#
#   ./demo.sh
#
# Every command that it shows is a process of its own. Ends with a failure when anything does not go as told.
set -Eeuo pipefail
cd "$(dirname "$0")"

say() { printf '\n== %s\n' "$*"; }
note() { printf '   %s\n' "$*"; }
indent() { sed -e '/^$/d' -e 's/^/   /'; }

# Shows a command as it would be typed.
show() {
    local word line='   $'
    for word in "$@"; do
        case $word in
            *[!A-Za-z0-9_./:=+-]*) line+=" '$word'" ;;
            *) line+=" $word" ;;
        esac
    done
    printf '%s\n' "$line"
}

# Shows a command, runs it and shows its output.
run() {
    show "$@"
    "$@" 2>&1 | indent || fail "this failed: $*"
}

# The same for a command that has to be refused, with the exit code that it has to have.
run_refused() {
    local expected=$1 code=0
    shift
    show "$@"
    "$@" > "$scratch/refused" 2>&1 || code=$?
    indent < "$scratch/refused"
    note "exit code $code"
    [ "$code" -eq "$expected" ] || fail "the exit code should have been $expected"
}

fail() {
    echo "demo: $*" >&2
    exit 1
}

build() {
    ./install-packages.sh
    echo 'Building, which takes a few minutes the first time ...'
    cmake --preset release > "$scratch/build.log" 2>&1 &&
        cmake --build --preset release --target mgmtctl mgmt_service policy_writer policy_reader \
            >> "$scratch/build.log" 2>&1 ||
        { tail -n 30 "$scratch/build.log" >&2; fail 'the build failed'; }
}

scratch=$(mktemp -d)
background=()
clean_up() {
    local process
    for process in "${background[@]}"; do kill -9 "$process" 2> /dev/null || true; done
    rm -rf "$scratch"
}
trap clean_up EXIT
trap 'echo "demo: this went wrong: $BASH_COMMAND" >&2' ERR

build
export PATH="$PWD/build/release/bin:$PATH"
export MGMT_STORE="$scratch/store"
cd examples

say 'A schema and its data become classes and instances in a store on disk'
note 'No server runs: each process loads the management service and opens the store itself.'
run mgmtctl import halvenor.mof halvenor-data.mof
run mgmtctl namespaces

say 'Classes say what there is; they inherit from one another'
run mgmtctl classes
run mgmtctl describe RetentionPolicy

say 'Instances hold the data; each is known by its class and its INSTANCE_ID'
run mgmtctl get RetentionPolicy mail
run mgmtctl xml StorageVolume vol-04

say 'Whole classes are counted, listed and searched; rows come as they are read'
note 'A class stands for those derived from it, too.'
run mgmtctl count Policy
run mgmtctl list Mailbox --where 'ItemCount > 20000' --sort ItemCount:desc \
    --properties INSTANCE_ID,ItemCount,LastArchived,Aliases
run mgmtctl query 'SELECT INSTANCE_ID, KeepDays, Owner FROM RetentionPolicy WHERE KeepDays >= 4000'
note "\$ mgmtctl list StorageVolume --json | wc -l"
mgmtctl list StorageVolume --json | wc -l | indent

say 'A new instance is created once'
run mgmtctl create QuotaPolicy demo 'DisplayName=For the demonstration' LimitBytes=1073741824 'ReportSteps=[80,95]'
run_refused 1 mgmtctl create QuotaPolicy demo
run mgmtctl list QuotaPolicy --where 'LimitBytes < 10000000000' --properties INSTANCE_ID,LimitBytes,WarnAt,ReportSteps

say 'What one process changes another one sees, at once'
note 'The values take the types of their properties: a number, an array, a date, null.'
run mgmtctl set RetentionPolicy mail KeepDays=30 'Tags=["mail","short-term"]' \
    CreatedAt=2026-11-22T10:30:00+01:00 Owner=null
note "\$ mgmtctl get RetentionPolicy mail --json | grep -E 'KeepDays|CreatedAt|Owner'"
mgmtctl get RetentionPolicy mail --json | grep -E 'KeepDays|CreatedAt|Owner' | indent

say 'Two processes write one policy at the same time, a third one reads it'
note 'Each write sets two properties together; no reader may ever see one without the other.'
run mgmtctl set RetentionPolicy shared 'DisplayName=Written by two' KeepDays=0 'Note=0 by nobody' --create
note '$ policy_writer shared A 200 &  policy_writer shared B 200 &  policy_reader shared 5000'
policy_writer shared A 200 > "$scratch/a" & background+=($!)
policy_writer shared B 200 > "$scratch/b" & background+=($!)
policy_reader shared 5000 | indent
wait "${background[@]}"
background=()
indent < "$scratch/a"
indent < "$scratch/b"

say 'A process that watches is told what the others do, as they do it'
note '$ mgmtctl watch RetentionPolicy --id watched --count 8 &'
timeout 60 mgmtctl watch RetentionPolicy --id watched --count 8 > "$scratch/watch" 2> "$scratch/watching" & watcher=$!
background=("$watcher")
until grep -q '^watching' "$scratch/watching" 2> /dev/null; do
    kill -0 "$watcher" 2> /dev/null || fail "the watch ended: $(cat "$scratch/watching")"
    sleep 0.05
done
run mgmtctl create RetentionPolicy watched 'DisplayName=Written by two'
note '$ policy_writer watched A 3 &  policy_writer watched B 3 &'
policy_writer watched A 3 > /dev/null & background+=($!)
policy_writer watched B 3 > /dev/null & background+=($!)
wait "${background[@]:1}"
run mgmtctl delete RetentionPolicy watched
wait "$watcher" || fail 'the watch did not see all of it'
background=()
note 'What the watching process printed meanwhile:'
indent < "$scratch/watch"

say 'A writer is killed in the middle of its work'
note '$ policy_writer shared C 0 &  kill -9 its process'
policy_writer shared C 0 & writer=$!
background=("$writer")
sleep 0.7
kill -9 "$writer"
wait "$writer" 2> /dev/null || true
background=()
note 'What it had written is whole, and the next process works on as if nothing had happened:'
note "\$ mgmtctl get RetentionPolicy shared | grep -E 'KeepDays|Note'"
mgmtctl get RetentionPolicy shared | grep -E 'KeepDays|Note' | indent
run mgmtctl set RetentionPolicy shared KeepDays=1 'Note=1 by the next process'

say 'What cannot be done is refused, with the reason and nothing changed'
run_refused 2 mgmtctl set RetentionPolicy mail KeepDays=-5
printf 'class Broken : ManagedElement { uint32 A = "text"; };\n' > "$scratch/broken.mof"
run_refused 1 mgmtctl import halvenor.mof "$scratch/broken.mof"

say 'Deleted is deleted'
run mgmtctl delete RetentionPolicy shared
run_refused 1 mgmtctl get RetentionPolicy shared

say 'That was all. The store of this demonstration is removed; examples/ holds its files and programs.'
