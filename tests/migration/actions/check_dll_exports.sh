#!/usr/bin/env bash
# The DLL must export exactly the three custom actions, undecorated, and import nothing
# but DLLs that every Windows system has.
set -euo pipefail
dll=$1
objdump=${OBJDUMP:-x86_64-w64-mingw32-objdump}
headers=$("$objdump" -p "$dll")

exports=$(printf '%s\n' "$headers" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' \
  | sed -n 's/^\s*\[ *[0-9]*\] //p' | sort | tr '\n' ' ')
expected="ExtractMigrConfig MigrateVantoraSvc MigrateVantoraUser "
if [ "$exports" != "$expected" ]; then
  echo "exports: '$exports', expected '$expected'"
  exit 1
fi

system_dlls=" advapi32.dll kernel32.dll msi.dll msvcrt.dll ole32.dll oleaut32.dll user32.dll shell32.dll shlwapi.dll netapi32.dll userenv.dll "
status=0
for name in $(printf '%s\n' "$headers" | sed -n 's/^\s*DLL Name: //p' | tr 'A-Z' 'a-z'); do
  case "$system_dlls" in
    *" $name "*) ;;
    *) echo "imports non-system DLL: $name"; status=1 ;;
  esac
done
[ $status -eq 0 ] && echo "exports: $exports; imports are system DLLs only"
exit $status
