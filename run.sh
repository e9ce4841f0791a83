#!/bin/bash
# Builds the plug-in and serves it to a first session of calls, or to whoever calls.
set -euo pipefail
shopt -s extglob
cd "$(dirname "${BASH_SOURCE[0]}")"
. tools/setup.sh
. tools/first-session.sh

usage() {
    echo "usage: ./run.sh               a first session: calls and events with their answers"
    echo "       ./run.sh serve [0|1]   serves instance 0 or 1 until Ctrl-C"
}

# Starts the host with its stdout in $host_output; goes on when it serves.
start_host() {
    local instance=$1 line
    exec {host_output}< <(exec "$bin/ox-modem-host" --instance "$instance")
    host=$!
    while read -r -t 60 line <&"$host_output"; do
        [[ $line != ready:* ]] || return 0
        echo "$line"
    done
    echo "The host did not start." >&2
    return 1
}

# Ends with the host's exit status.
stop_host() {
    kill -TERM "$host" 2>/dev/null || true
    wait "$host"
}

clean_up() {
    kill -TERM ${host:-} ${watcher:-} 2>/dev/null || true
    wait ${host:-} ${watcher:-} || true
    rm -rf "$OX_RUNTIME_DIR"
}

first_session() {
    export OX_RUNTIME_DIR
    OX_RUNTIME_DIR=$(mktemp -d /tmp/ox-modem.XXXXXX)
    trap clean_up EXIT
    trap 'exit 130' INT TERM
    start_host 0 2>"$OX_RUNTIME_DIR/host.log" || { cat "$OX_RUNTIME_DIR/host.log" >&2; return 1; }
    run_session
    stop_host || { echo "The host left with status $?." >&2; return 1; }
    ((wrong == 0)) || { echo "$wrong of $steps steps went wrong." >&2; return 1; }
    echo "All $steps steps went as expected."
}

serve() {
    local instance=$1 client status=0
    client="$(printf %q "$PWD/$bin/modemctl") --instance $instance"
    trap 'kill -TERM ${host:-} 2>/dev/null || true' INT TERM EXIT
    start_host "$instance"
    cat <<END

Serving instance $instance until Ctrl-C. Type in a second terminal:
${OX_RUNTIME_DIR:+    export OX_RUNTIME_DIR=$(printf %q "$OX_RUNTIME_DIR")
}    $client call getOperatingMode
    $client watch
    $client sim help
    $client list

END
    # A signal ends the wait before it ends the host.
    while wait "$host" || status=$?; kill -0 "$host" 2>/dev/null; do
        status=0
    done
    return "$status"
}

bin=build/release/bin
case $*  in
    "") instance= ;;
    serve | "serve 0") instance=0 ;;
    "serve 1") instance=1 ;;
    -h | --help) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
esac
install_packages "${build_packages[@]}"
build release ox-modem ox-modem-host modemctl
if [[ -n $instance ]]; then serve "$instance"; else first_session; fi
