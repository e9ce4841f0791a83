# Sourced by run.sh: a first session as a table, and what runs it.

# A command and what its output has to hold, serials left out. "&" leaves a watch running behind
# the steps that follow, and "wait" shows what it printed. $mbn is a file with a configuration.
# "+" marks what only the whole session has.
session_table() {
    cat <<'END'
# The operating mode, set and read back
modemctl call setOperatingMode 1                     | setOperatingModeResponse error=0
modemctl call getOperatingMode                       | getOperatingModeResponse error=0 mode=1
modemctl --json call --serial 7 getOperatingMode     | {"method":"getOperatingModeResponse","info":{"type":0,"serial":7,"error":0},"mode":1}
+
+# Network access: NR and VoNR
+modemctl call switchNRNetworkMode 2                  | switchNRNetworkModeResponse error=0
+modemctl call getNRNetworkMode                       | getNRNetworkModeResponse error=0 mode=2
+modemctl call setVoNRMode 1                          | setVoNRModeResponse error=0
+modemctl call getVoNRMode                            | getVoNRModeResponse error=0 mode=1
+modemctl call deprioritizeNr 1                       | deprioritizeNrResponse error=0
+
+# IMS profiles, and the SAR state
+modemctl call isImsProfileNormal                     | isImsProfileNormalResponse error=0
+modemctl call deleteImsProfile                       | deleteImsProfileResponse error=0
+modemctl call setSarState -3                         | setSarStateResponse error=0
+
+# What the modem tells of itself
+modemctl call getBuildTime                           | getBuildTimeResponse error=0 buildTime=
+modemctl call getBuildId                             | getBuildIdResponse error=0 buildId=
+modemctl call getBandsInfo                           | getBandsInfoResponse error=0 list1=[
+modemctl call getSimlockInfoStatus                   | getSimlockInfoStatusResponse error=0 status=

# What is written is read back: an NV item
modemctl call writeNVItem 550 0 0 hex:0a0b           | writeNVItemResponse error=0
modemctl call readNVItem 550 0 0                     | readNVItemResponse error=0 data=hex:0a0b
+modemctl call verifyNV 550 [10,11]                   | verifyNVResponse error=0 verified=1
+
+# Properties, EFS files and the PRL
+modemctl call setModemProperty ims.mode "auto dial"  | setModemPropertyResponse error=0
+modemctl call getModemProperty ims.mode              | getModemPropertyResponse error=0 value="auto dial"
+modemctl call writeEfsFile 3 0 text:hello            | writeEfsFileResponse error=0
+modemctl call readEfsFile 3 0                        | readEfsFileResponse error=0 data=hex:68656c6c6f
+modemctl call deleteEfsFile 3 0                      | deleteEfsFileResponse error=0
+modemctl call writePrl 0 hex:00ff10                  | writePrlResponse error=0
+modemctl call readPrl 0                              | readPrlResponse error=0 data=hex:00ff10
+
+# Modes that the modem takes its time for
+modemctl call setAgpsTestMode 5                      | setAgpsTestModeResponse error=0
+modemctl call getAgpsTestMode                        | getAgpsTestModeResponse error=0 mode=5
+modemctl call setModemPowerSaveMode 2                | setModemPowerSaveModeResponse error=0
+modemctl call getModemPowerSaveMode                  | getModemPowerSaveModeResponse error=0 mode=2

# A configuration file: loaded, selected, activated, read back
+modemctl call getMbnList                             | getMbnListResponse error=0 mbns=[generic/common
modemctl call loadMbnConfig $mbn                     | loadMbnConfigResponse error=0
modemctl call selectMbn 0 text:MbnApp_$mbn           | selectMbnResponse error=0
modemctl call activateMbn 0                          | activateMbnResponse error=0
modemctl call getActiveMbnInfo 0                     | getActiveMbnInfoResponse error=0 result=0 configId=hex:4d626e4170705f

# An event, provoked at the fake modem
modemctl watch --count 1 &
modemctl fake rrc 1 3 0 0                             | ok
wait                                                 | modemRRCStateInd lteValid=1 rrcState=3 wcdmaValid=0 wcdmaRrcState=0
+
+# Radio reports, switched on by a request
+modemctl watch --count 1 &
+modemctl call setRadioInfoReportEnabled 1            | setRadioInfoReportEnabledResponse error=0
+wait                                                 | modemRadioInfoReportInd
+modemctl call setRadioInfoReportEnabled 0            | setRadioInfoReportEnabledResponse error=0

# An operator at the AT port starts a log, and the watching client confirms it
modemctl watch --confirm-log --count 1 &
at AT+LOG=1,tc7                                      | OK
wait                                                 | atLogControlInfoInd logMode=1 testResult=3 tcName=tc7
+modemctl watch --confirm-log --count 1 &
+at AT+LOG=0,tc7,1                                    | OK
+wait                                                 | atLogControlInfoInd logMode=0 testResult=1 tcName=tc7
END
}

modemctl() { timeout 60 "$bin/modemctl" "$@"; }

# Types a command at the modem's AT port, and shows the port up to the verdict.
at() {
    local port line=
    exec {port}<>"$OX_RUNTIME_DIR/at-port.0"
    printf '%s\r' "$1" >&"$port"
    while [[ $line != OK && $line != ERROR ]] && read -r -t 20 line <&"$port"; do
        line=${line//$'\r'/}
        [[ -z $line ]] || echo "$line"
    done
    exec {port}>&-
}

# Starts a watch, its output in $events; goes on when it watches.
start_watch() {
    local line
    exec {events}< <(exec timeout 60 "$bin/modemctl" "${@:2}" 2>&1)
    watcher=$!
    read -r line <&"$events" || true
    [[ $line == *watching* ]] || { echo "$line"; return 1; }
}

end_watch() {
    cat <&"$events"
    exec {events}<&-
    wait "$watcher"
}

run_step() {
    local command=$1 expected=$2 words output=$OX_RUNTIME_DIR/step status=0
    eval "words=(${command%&})"
    echo "\$ ${command//'$mbn'/"$mbn"}"
    case $command in
        *'&') start_watch "${words[@]}" >"$output" || status=$? ;;
        wait) end_watch >"$output" || status=$? ;;
        *) "${words[@]}" >"$output" 2>&1 || status=$? ;;
    esac
    output=$(<"$output")
    [[ -z $output ]] || echo "$output"
    steps=$((steps + 1))
    if ((status != 0)) || [[ ${output//serial=+([0-9]) /} != *"$expected"* ]]; then
        echo "    wrong: status $status, expected 0 and: $expected" >&2
        wrong=$((wrong + 1))
    fi
}

# Runs the session, or with an argument the whole one. Leaves the number of steps in $steps, and of
# those that went otherwise in $wrong.
run_session() {
    local line all=$1 mbn=$OX_RUNTIME_DIR/row.mbn
    steps=0 wrong=0
    head -c 2500 /dev/urandom >"$mbn"
    while IFS= read -r line; do
        if [[ $line == +* ]]; then
            [[ -n $all ]] || continue
            line=${line#+}
        fi
        case $line in
            '' | '#'*) echo "${line/#'# '/== }" ;;
            *' | '*) run_step "${line%%*( ) | *}" "${line#* | }" ;;
            *) run_step "$line" "" ;;
        esac
    done < <(session_table)
}
