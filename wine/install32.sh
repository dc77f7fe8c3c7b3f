#!/usr/bin/env bash
# Installs Wine for 32-bit programs. Ends with 1 and prints the reason in one line when it cannot be had: its i386
# packages have to be of the very versions that this machine has of the amd64 ones.
installed() { dpkg-query -W -f='${db:Status-Status}' wine32:i386 2>/dev/null | grep -qx installed; }
if installed; then exit; fi
as_root=()
[[ $EUID -eq 0 ]] || as_root=(sudo -n)
known=$(dpkg --print-foreign-architectures)
output=$( { "${as_root[@]}" dpkg --add-architecture i386; "${as_root[@]}" apt-get update
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends --no-remove \
        -o DPkg::Lock::Timeout=-1 wine32:i386; } 2>&1)
if installed; then exit; fi
# Left as it was.
[[ $known == *i386* ]] || "${as_root[@]}" dpkg --remove-architecture i386 2>/dev/null
reason=$(grep '^E: ' <<<"$output" || echo "$output")
echo "wine32:i386 does not install ($(tail -n 1 <<<"$reason"))"
exit 1
