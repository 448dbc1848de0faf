#!/bin/bash
# Prepares the lab once: host programs through apt, and a Debian kernel image
# package that is downloaded and unpacked under the cache folder (never installed here).
#   setup.sh [kernel-package]     default: what linux-image-amd64 points at
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
cache=${QRTR_LAB_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/qrtr-lab}

"$here/../install-packages" qemu-system-x86 busybox-static cpio kmod xz-utils python3

[ $# -gt 0 ] || apt-cache show linux-image-amd64 >/dev/null 2>&1 || apt-get update >/dev/null
pkg=${1:-$(apt-cache depends linux-image-amd64 | sed -n 's/.*Depends: \(linux-image-[^ ]*\)/\1/p' | head -1)}
mkdir -p "$cache/debs"
if [ ! -d "$cache/kernel/$pkg" ]; then
    (cd "$cache/debs" && apt-get -o APT::Sandbox::User=root download "$pkg")
    rm -rf "$cache/kernel/$pkg.tmp"
    mkdir -p "$cache/kernel/$pkg.tmp"
    dpkg -x "$cache"/debs/"$pkg"_*.deb "$cache/kernel/$pkg.tmp"
    mv "$cache/kernel/$pkg.tmp" "$cache/kernel/$pkg"
fi
root=$cache/kernel/$pkg
ver=$(ls "$root/lib/modules")
[ -f "$root/lib/modules/$ver/modules.dep" ] || depmod -b "$root" "$ver"

# The image is xz-compressed; unpacking it under emulation costs seconds of
# every boot, so keep the plain ELF beside it (it boots through its PVH entry).
if [ ! -f "$root/vmlinux" ]; then
    python3 - "$root/boot/vmlinuz-$ver" "$root/vmlinux.tmp" <<'PY'
import lzma, sys
image = open(sys.argv[1], 'rb').read()
at = image.find(b'\xfd7zXZ\x00')
while at >= 0:
    try:
        elf = lzma.LZMADecompressor(format=lzma.FORMAT_XZ).decompress(image[at:])
        if elf[:4] == b'\x7fELF':
            open(sys.argv[2], 'wb').write(elf)
            sys.exit(0)
    except lzma.LZMAError:
        pass
    at = image.find(b'\xfd7zXZ\x00', at + 1)
sys.exit('no xz-compressed ELF found in the kernel image')
PY
    mv "$root/vmlinux.tmp" "$root/vmlinux"
fi
echo "$pkg" > "$cache/kernel-package"
echo "kernel package: $(basename "$(ls "$cache"/debs/"$pkg"_*.deb)")"
grep -E 'CONFIG_QRTR[= ]' "$root/boot/config-$ver"
