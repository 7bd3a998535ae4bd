#!/usr/bin/env bash
# Builds the library and zelplat, makes a Wine prefix that looks like a sample workstation
# (demo/workstation.reg) and asks zelplat the support questions there.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

scripts/bootstrap.sh
cmake --preset windows-x64 >/dev/null
cmake --build --preset windows-x64 --target zelplat zel_kit_agent civ_idemia_awp

wine64=/usr/lib/wine/wine64
[ -x "$wine64" ] || wine64=$(command -v wine64)
bin="$root/build/windows-x64/bin"
prefix="$root/build/demo-prefix"
export WINEPREFIX="$prefix" WINEDEBUG=-all

echo "Preparing the sample workstation in $prefix ..."
scripts/wine-prefix start "$prefix" >/dev/null
agent_pid=
stop_demo() {
    if [ -n "$agent_pid" ]; then
        kill "$agent_pid" 2>/dev/null || true
        wait "$agent_pid" 2>/dev/null || true
    fi
    scripts/wine-prefix stop "$prefix" >/dev/null
}
trap stop_demo EXIT
"$wine64" reg import "Z:${root//\//\\}\\demo\\workstation.reg" </dev/null >/dev/null 2>&1

# The driver package of the Windows-Update minidriver: its multi-string values, and its folder
# in the driver store.
driver_key='HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\DriverSearching\DriverUpdates\scfilter_cid_c6ba7b16'
"$wine64" reg add "$driver_key" /v HardwareIds /t REG_MULTI_SZ \
    /d 'scfilter\cid_c6ba7b16-273e-5d46-8495-60e6786fcda0\0scfilter\generic' /f </dev/null >/dev/null 2>&1
"$wine64" reg add "$driver_key" /v DriverPackageIds /t REG_MULTI_SZ \
    /d 'civminidriver.inf_amd64_5f1d2e3c4b5a6978' /f </dev/null >/dev/null 2>&1
package="$prefix/drive_c/windows/system32/DriverStore/FileRepository/civminidriver.inf_amd64_5f1d2e3c4b5a6978"
mkdir -p "$package"
cp "$bin/civ_idemia_awp.dll" "$package/CIVMinidriver64.dll"

# The Identity Agent the sample workstation has installed: the test kit's agent stand-in, which
# does nothing but run, under the agent's executable name. It runs detached until the demo ends.
agent_folder="$prefix/drive_c/Program Files (x86)/Vessant/Identity Agent"
mkdir -p "$agent_folder"
cp "$bin/zel_kit_agent.exe" "$agent_folder/IdentityAgent.exe"
echo "Starting the Identity Agent (C:\Program Files (x86)\Vessant\Identity Agent\IdentityAgent.exe) ..."
"$wine64" "C:\\Program Files (x86)\\Vessant\\Identity Agent\\IdentityAgent.exe" \
    zel-demo-agent-stop zel-demo-agent-ready </dev/null >/dev/null 2>&1 &
agent_pid=$!
for _ in $(seq 50); do
    if "$wine64" tasklist </dev/null 2>/dev/null | grep -qi '^IdentityAgent\.exe'; then
        break
    fi
    sleep 0.2
done
echo

# Shows each command, its answer and explanation, and a non-zero exit code.
zelplat() {
    echo "\$ zelplat $*"
    local status=0
    "$wine64" "$bin/zelplat.exe" "$@" </dev/null 2>&1 | tr -d '\r' || status=${PIPESTATUS[0]}
    if [ "$status" -ne 0 ]; then
        echo "(exit code $status)"
    fi
    echo
}

zelplat report --table
zelplat doctor
zelplat doctor --fix --dry-run
zelplat card --help
zelplat enrollment get
zelplat enrollment set AGILE
zelplat enrollment get
zelplat enrollment set agile
zelplat enrollment set sideways
zelplat file-version 'C:\windows\system32\kernel32.dll'
zelplat file-version 'Z:'"${bin//\//\\}"'\ZelPlatformMethods64.dll'
zelplat middleware --table
zelplat middleware
zelplat oberthur
zelplat doctor --fix --yes
zelplat atr get
zelplat ia
zelplat --verbose ia --table
zelplat ia spring-check off
zelplat ia --table
zelplat ia spring-check default
zelplat ia --table
zelplat doctor
