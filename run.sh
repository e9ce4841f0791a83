#!/bin/bash
# Builds the plug-in and serves it to a first session of calls, or to whoever calls.
set -euo pipefail
shopt -s extglob
cd "$(dirname "${BASH_SOURCE[0]}")"
. tools/setup.sh
. tools/first-session.sh

usage() {
    cat <<'END'
usage: ./run.sh [-v] [--all]       a first session: calls and events with their answers
       ./run.sh [-v] serve [0|1]   serves instance 0 or 1 until Ctrl-C
       --all                       the whole session, with a call of most requests
       -v                          shows what the build prints
END
}

# Without the shell's complaint when the reader of the output has gone: the script ends then.
echo() {
    local why
    builtin echo "$@" 2>/dev/null && return
    { why=$(builtin echo 2>&1 >&3) || true; } 3>&1
    [[ $why == *"Broken pipe" ]] || builtin echo "run.sh: cannot write: ${why##*: }" >&2
    return 1
}

# Runs when the script ends, however it ends: no process and no folder stays.
clean_up() {
    trap '' INT TERM PIPE
    kill -TERM ${timer:-} ${host:-} ${watcher:-} 2>/dev/null || true
    wait ${host:-} ${watcher:-} ${viewer:-} 2>/dev/null || true
    [[ -z ${folder:-} ]] || rm -rf "$folder"
}

# Builds without a word, unless it takes long or goes wrong.
build_quietly() {
    (
        trap 'kill "$pause"' TERM
        sleep 2 & pause=$!
        ! wait "$pause" || echo "Building; the first time takes a minute or two." >&2
    ) &
    timer=$!
    if ! build release "$@" >"$folder/build.log" 2>&1; then
        cat "$folder/build.log" >&2
        return 1
    fi
    kill -TERM "$timer" 2>/dev/null || true
}

# Says how the host ended, with its last fatal line if it wrote one.
tell_end() {
    local status=$1 fatal=$2
    if ((status > 128)); then
        echo "The host was ended by signal $((status - 128)) (SIG$(kill -l "$status"))."
    else
        echo "The host ended with status $status."
    fi >&2
    [[ -z $fatal ]] || echo "Its last fatal line: $fatal" >&2
}

# The last line of priority F in a log as logcat prints it.
last_fatal() { sed -n -E '/^[-0-9]+ [:.0-9]+ +[0-9]+ +[0-9]+ F /h; ${x;p}' "$1"; }

first_session() {
    export OX_RUNTIME_DIR=$folder
    "$bin/ox-modem-host" >"$folder/ready" 2>"$folder/host.log" &
    host=$!
    local status=0
    until grep -q '^ready:' "$folder/ready"; do
        kill -0 "$host" 2>/dev/null || { cat "$folder/host.log" >&2; return 1; }
        sleep 0.05
    done
    run_session "$1"
    kill -TERM "$host" 2>/dev/null || true
    wait "$host" 2>/dev/null || status=$?
    host=
    if ((status != 0)); then
        tell_end "$status" "$(last_fatal "$folder/host.log")"
        return 1
    fi
    ((wrong == 0)) || { echo "$wrong of $steps steps went wrong." >&2; return 1; }
    echo "All $steps steps went as expected."
}

# What to type, once the host is ready and its log has come to rest.
what_to_type() {
    local client
    client="$(printf %q "$PWD/$bin/modemctl") --instance $1"
    cat <<END

Serving instance $1 until Ctrl-C. Type in a second terminal:
${OX_RUNTIME_DIR:+    export OX_RUNTIME_DIR=$(printf %q "$OX_RUNTIME_DIR")
}    $client call getOperatingMode
    $client watch
    $client fake help
    $client list

END
}

# Shows the host's output from stdin: its log to stderr, errors in colour on a terminal. Leaves the
# last fatal line in $folder/fatal.
show_host() {
    local instance=$1 line status colour state=starting
    local stamp='+([-0-9]) +([:.0-9])+( )+([0-9])+( )+([0-9])'
    trap '' INT TERM PIPE
    while true; do
        status=0 colour=
        IFS= read -r -t 0.3 line || status=$?
        if ((status > 128)); then
            [[ $state != ready ]] || { what_to_type "$instance" || return; state=told; }
            continue
        fi
        ((status == 0)) || return 0
        case $line in
            ready:*) state=ready ;;
            $stamp' F '*) echo "$line" >"$folder/fatal"; colour='\e[31m' ;;
            $stamp' E '*) colour='\e[31m' ;;
            $stamp' W '*) colour='\e[33m' ;;
        esac
        [[ -t 2 ]] || colour=
        # A full disk costs lines of a file; a terminal or pipe that has gone ends it.
        echo -e "$colour${line//\\/\\\\}${colour:+\e[0m}" >&2 || [[ -f /dev/fd/2 ]] || return
    done
}

serve() {
    local instance=$1 status=0
    : >"$folder/fatal"
    mkfifo "$folder/output"
    "$bin/ox-modem-host" --instance "$instance" >"$folder/output" 2>&1 &
    host=$!
    # Without anybody who takes its output, the host need not serve on.
    { show_host "$instance" || true; kill -TERM "$host" 2>/dev/null; } <"$folder/output" &
    viewer=$!
    trap 'kill -TERM "$host" 2>/dev/null || true' INT TERM
    # A signal ends the wait before it ends the host.
    while status=0; wait "$host" 2>/dev/null || status=$?; kill -0 "$host" 2>/dev/null; do
        :
    done
    host=
    wait "$viewer" || true
    ((status == 0)) || tell_end "$status" "$(<"$folder/fatal")"
    return "$status"
}

bin=build/release/bin
verbose= all= instance=
usage_error() { usage >&2; exit 2; }
while (($#)); do
    case $1 in
        -v) verbose=1 ;;
        --all) all=1 ;;
        serve)
            instance=0
            if (($# > 1)) && [[ $2 == [01] ]]; then instance=$2; shift; fi
            ;;
        -h | --help) usage; exit 0 ;;
        *) usage_error ;;
    esac
    shift
done
[[ -z $instance || -z $all ]] || usage_error

folder=$(mktemp -d /tmp/ox-modem.XXXXXX)
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 141' PIPE
install_packages "${build_packages[@]}"
targets=(ox-modem ox-modem-host modemctl)
if [[ -n $verbose ]]; then build release "${targets[@]}"; else build_quietly "${targets[@]}"; fi
if [[ -n $instance ]]; then serve "$instance"; else first_session "$all"; fi
