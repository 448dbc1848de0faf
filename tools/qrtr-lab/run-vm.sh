#!/bin/bash
# Boots a Debian kernel with QRTR under qemu and runs one command in it.
#   run-vm.sh DIR 'command line'
# The command runs as root in /lab (a copy of DIR) and its output comes to
# stdout; this script exits with its status (124: it ran past the limit,
# 125: the guest did not finish). Set by environment:
#   VM_TIMEOUT  seconds the command may take in the guest          (120)
#   VM_SMP      virtual processors                                 (2)
#   VM_MEM      guest memory in MiB                                (768)
#   VM_ACCEL    tcg, or kvm where that works                       (tcg)
#   VM_PROGS    more host programs to take along, with libraries   ()
#   VM_MODULES  kernel modules to load, in this order              (qrtr)
#   VM_ICOUNT   N: count instructions, 2^N ns of guest time each; one
#               processor, slower, but timings repeat to a thousandth
#   VM_SHELL    program that reads the command line                (sh)
#   VM_OUT      host folder that receives what the guest leaves in $OUT
#   VM_LOG      file that receives the guest's kernel log
#   VM_APPEND   more words for the kernel's command line           ()
#   VM_QEMU     more words for qemu's command line                 ()
set -euo pipefail
[ $# -eq 2 ] && [ -d "$1" ] || { sed -n '2,21s/^# \{0,1\}//p' "$0"; exit 2; }
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
cache=${QRTR_LAB_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/qrtr-lab}
export QRTR_LAB_CACHE=$cache
[ -f "$cache/kernel-package" ] || "$here/setup.sh" >&2
kroot=$cache/kernel/$(cat "$cache/kernel-package")
kver=$(ls "$kroot/lib/modules")
dir=$(cd "$1" && pwd -P)
limit=${VM_TIMEOUT:-120}

work=$(mktemp -d -t qrtr-vm.XXXXXX)
qemu=
cleanup() {
    [ -z "$qemu" ] || kill -TERM "$qemu" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

root=$work/root
mkdir -p "$root"/{usr/bin,usr/sbin,usr/lib,usr/lib64,etc,proc,sys,dev,tmp,root,out,lab,modules,run}
for d in bin sbin lib lib64; do ln -s "usr/$d" "$root/$d"; done
rmdir "$root/usr/sbin"; ln -s bin "$root/usr/sbin"

install -m 755 "$(command -v busybox)" "$root/usr/bin/busybox"
install -m 755 "$here/guest-init.sh" "$root/init"
cp -a "$dir/." "$root/lab/"
# Absolute library paths baked into programs of DIR keep working.
if [ ! -e "$root$dir" ] && [ ! -L "$root$dir" ]; then
    mkdir -p "$root$(dirname "$dir")"
    ln -s /lab "$root$dir"
fi

is_elf() { [ "$(head -c 4 "$1" 2>/dev/null | tr -d '\0')" = $'\x7fELF' ]; }
progs=$work/progs
find "$root/lab" -type f \( -perm -u+x -o -name '*.so*' \) -print0 |
    while IFS= read -r -d '' f; do ! is_elf "$f" || printf '%s\n' "$dir/${f#"$root/lab/"}"; done > "$progs"
for p in ${VM_PROGS:-}; do
    bin=$(readlink -f "$(command -v "$p")")
    install -m 755 "$bin" "$root/usr/bin/$(basename "$p")"
    echo "$bin" >> "$progs"
done
# What the host's loader would take for each program, at the same place.
while IFS= read -r p; do
    ldd "$p" 2>/dev/null | sed -nE 's/.*=> (\/[^ ]+) \(.*/\1/p; s/^[[:space:]]+(\/[^ ]+) \(.*/\1/p' || true
done < "$progs" | sort -u > "$work/libs"
while IFS= read -r lib; do
    case $(readlink -f "$lib") in "$dir"/*) continue ;; esac
    at=$(readlink -f "$(dirname "$lib")")
    mkdir -p "$root$at"
    cp -L "$lib" "$root$at/$(basename "$lib")"
done < "$work/libs"

printf 'root:x:0:0:root:/root:/bin/sh\nlab:x:1000:1000:lab:/tmp:/bin/sh\nnobody:x:65534:65534:nobody:/:/bin/sh\n' > "$root/etc/passwd"
printf 'root:x:0:\nlab:x:1000:\nnogroup:x:65534:\n' > "$root/etc/group"
printf '127.0.0.1 localhost\n' > "$root/etc/hosts"
printf 'passwd: files\ngroup: files\n' > "$root/etc/nsswitch.conf"
printf '%s\n' "$2" > "$root/etc/lab.command"
printf 'LAB_TIMEOUT=%s\nLAB_SHELL=%s\n' "$limit" "${VM_SHELL:-sh}" > "$root/etc/lab.conf"

mods=(${VM_MODULES:-qrtr})
[ -z "${VM_OUT:-}" ] || mods=(virtio_pci virtio_blk "${mods[@]}")
for m in "${mods[@]}"; do
    modprobe -d "$kroot" -S "$kver" --show-depends "$m" | sed -n 's/^insmod //p'
done | awk '!seen[$1]++ { print $1 }' > "$work/mods"
while IFS= read -r ko; do
    cp "$ko" "$root/modules/"
    echo "/modules/$(basename "$ko")"
done < "$work/mods" > "$root/etc/lab.modules"

# One timestamp and sorted names: the same inputs give the same image.
find "$root" -exec touch -h -d @0 {} +
(cd "$root" && find . -print0 | LC_ALL=C sort -z |
    cpio --null --quiet -o -H newc --reproducible -R 0:0) > "$work/initrd"
rm -rf "$root"

args=(-nodefaults -no-user-config -no-reboot -display none -monitor none
      -machine pc -m "${VM_MEM:-768}"
      -kernel "$kroot/vmlinux" -initrd "$work/initrd"
      -append "console=ttyS0 loglevel=4 panic=-1 mitigations=off nokaslr random.trust_cpu=on tsc=reliable no_timer_check cryptomgr.notests 8250.nr_uarts=4 ${VM_APPEND:-}"
      -serial "file:$work/console" -serial stdio -serial "file:$work/status")
if [ -n "${VM_ICOUNT:-}" ]; then
    args+=(-accel tcg,thread=single -cpu max -smp 1 -icount "shift=$VM_ICOUNT")
elif [ "${VM_ACCEL:-tcg}" = kvm ]; then
    args+=(-accel kvm -cpu host -smp "${VM_SMP:-2}")
else
    args+=(-accel tcg,thread=multi -cpu max -smp "${VM_SMP:-2}")
fi
args+=(${VM_QEMU:-})
if [ -n "${VM_OUT:-}" ]; then
    truncate -s 512M "$work/disk"
    args+=(-drive "file=$work/disk,format=raw,if=virtio,cache=unsafe")
fi
: > "$work/status"
t0=$(date +%s.%N)
timeout -k 5 $((limit + 120)) qemu-system-x86_64 "${args[@]}" </dev/null 2>"$work/qemu-err" &
qemu=$!
wait "$qemu" || true
qemu=
t1=$(date +%s.%N)

value() { tr -d '\r' < "$work/status" | sed -n "s/^$1 //p" | tail -1; }
rc=$(value status)
[ -z "${VM_LOG:-}" ] || cp "$work/console" "$VM_LOG"
if [ -n "${VM_OUT:-}" ] && [ "$(value out)" = 1 ]; then
    mkdir -p "$VM_OUT"
    tar -xf "$work/disk" -C "$VM_OUT" --no-same-owner
fi
if [ -z "$rc" ]; then
    echo "[vm] the guest did not finish; end of its log:" >&2
    tail -n 30 "$work"/console "$work/qemu-err" >&2 2>/dev/null || true
    exit 125
fi
awk -v rc="$rc" -v b="$(value boot)" -v e="$(value end)" -v a="$t0" -v z="$t1" \
    'BEGIN { printf "[vm] exit status %d; kernel+init %.1f s, command %.1f s, whole run %.1f s\n", rc, b, e - b, z - a }' >&2
exit "$rc"
