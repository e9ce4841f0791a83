#!/bin/bash
# A Debian package, unpacked elsewhere, works: the programs find their libraries and the plug-in
# beside them, and nothing in the build folder.
set -euo pipefail
build=$1 version=$2
folder=$(mktemp -d)
trap 'echo "line $LINENO: $BASH_COMMAND" >&2' ERR
trap 'kill -TERM ${host:-} 2>/dev/null || true; rm -rf "$folder"' EXIT
cpack --config "$build/CPackConfig.cmake" -B "$folder" >"$folder/log" || { cat "$folder/log"; exit 1; }
package=$(echo "$folder"/ox-modem_*.deb)
dpkg --extract "$package" "$folder/root"
cd "$folder/root"
libraries=$(ldd usr/bin/{modemctl,ox-modem-host} usr/lib/ox-modem/*.so)
[[ $libraries != *"$build"* && $libraries != *"not found"* && -z $(grep -ral "$build" .) ]]
list=$(strings usr/lib/ox-modem/libox-modem.so | grep 'oem_sw\.txt$')
[[ -s .$list && $(dpkg --info "$package" conffiles) == "$list" ]]
[[ $(dpkg --field "$package" Version) == "$version" ]]
for program in modemctl ox-modem-host; do
    [[ $("usr/bin/$program" --version) == "$program $version" ]]
done
bash -n usr/share/bash-completion/completions/modemctl
grep -q getOperatingMode usr/share/man/man1/modemctl.1
export OX_RUNTIME_DIR=$folder/runtime
exec {output}< <(exec usr/bin/ox-modem-host 2>"$folder/host.log")
host=$!
while read -r -t 30 line <&"$output" && [[ $line != ready:* ]]; do :; done
[[ $line == "ready: $PWD/usr/lib/ox-modem/libox-modem.so serves"* ]]
usr/bin/modemctl call setOperatingMode 1
[[ $(usr/bin/ox-modem-log --method setOperatingMode <"$folder/host.log") == *"1 request: 1 succeeded"* ]]
