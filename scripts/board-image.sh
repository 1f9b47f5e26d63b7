# shellcheck shell=bash
# scripts/board-image.sh: the board image of scripts/board, which sources
# it once it has the kernel ($kdir, $kver) and BusyBox ($bbdir): the
# project cross-built for armhf and installed into $work/root, the sample
# record, the drivers, the stand-ins, the start scripts and the report,
# the boot table or the bench when asked for, all packed into the
# initramfs $initrd. Also sets $app, $modules and run_arm for the boot.

# --- the project, cross-built for armhf ---------------------------------------
cmake -S "$top" -B "$out/armhf" -DHW_TESTS=OFF \
    -DCMAKE_TOOLCHAIN_FILE="$top/cmake/arm-linux-gnueabihf.cmake" >/dev/null
cmake --build "$out/armhf" -j"$(nproc)" >/dev/null
root=$work/root
rm -rf "$root"
DESTDIR=$root cmake --install "$out/armhf" --strip >/dev/null
app=$root/mnt/mtd/app
run_arm() { qemu-arm-static -L /usr/arm-linux-gnueabihf "$@"; }

if [[ -z $record && $erased == 0 ]]; then
    record=$work/sample-record.bin
    run_arm "$app/devinfo" create "$record" --board-id 0x851 --board-name IPC_AX620Q \
        --mac 02:12:34:56:78:9a --p2p-id P2P-0001
fi

# --- the initramfs -------------------------------------------------------------
mkdir -p "$root"/{bin,sbin,usr/bin,usr/sbin,lib,dev,proc,sys,tmp,config,var/run,var/log,etc/board,etc/default,root}
cp "$bbdir/bin/busybox" "$root/bin/busybox"
for a in $(run_arm "$root/bin/busybox" --list-full); do
    [[ -e $root/$a || -L $root/$a ]] || ln -s /bin/busybox "$root/$a"
done
ln -sf /bin/busybox "$root/init"
# The programs are linked against the C library alone: the loader and
# libc.so.6 of Debian's armhf cross C library.
cp -L /usr/arm-linux-gnueabihf/lib/ld-linux-armhf.so.3 /usr/arm-linux-gnueabihf/lib/libc.so.6 "$root/lib/"

# The drivers the board's rcS loads, in order, with their options.
if [[ $board == virt ]]; then
    # 16 MiB small-page NAND (ids 0x20 0x33), 16 KiB erase blocks: boot
    # 256 KiB, env 64 KiB, app 16000 KiB, devinfo (mtd3) the last 64 KiB.
    modules=(virtio_mmio virtio_net "nandsim id_bytes=0x20,0x33 parts=16,4,1000${bad_blocks:+ badblocks=$bad_blocks}" mtdblock)
else
    # GPIO first: the SPI chip select and the PHY reset are GPIO lines.
    modules=(gpio_mxc ofpart spi_imx spi_nor mtdblock fec)
fi
# Those modules with what they depend on, as the kernel's modules.dep says.
[[ -e $kdir/lib/modules/$kver/modules.dep ]] || depmod -b "$kdir" "$kver"
for m in "${modules[@]}"; do
    modprobe -d "$kdir" -S "$kver" --show-depends "${m%% *}" | awk '$1 == "insmod" { print $2 }'
done | sort -u | while read -r ko; do
    rel=${ko#"$kdir"/}
    mkdir -p "$root/$(dirname "$rel")"
    cp "$ko" "$root/$rel"
done
cp "$kdir/lib/modules/$kver"/modules.{order,builtin,builtin.modinfo} "$root/lib/modules/$kver/"
depmod -b "$root" "$kver"

# The DDNS client and the GUI: stand-ins that say where and how they were
# started, leave their pid for the report and stay, as the real ones do.
# They are programs of their own (not scripts), so that their executable is
# /mnt/mtd/app/NAME as the real ones' is: S50hw_start's stop finds them so.
for p in vrn_ddns_client gui; do
    arm-linux-gnueabihf-gcc -O2 -s -DNAME="\"$p\"" -o "$app/$p" -x c - <<'EOF'
/* Stand-in for one of the board's programs, NAME. */
#include <stdio.h>
#include <unistd.h>
int main(int argc, char **argv)
{
    char cwd[256];
    printf(NAME ": cwd=%s argc=%d", getcwd(cwd, sizeof cwd) ? cwd : "?", argc - 1);
    for (int i = 1; i < argc; i++)
        printf(" [%s]", argv[i]);
    printf("\n");
    fflush(stdout);
    FILE *f = fopen("/var/run/" NAME ".pid", "w");
    if (f) {
        fprintf(f, "%d\n", (int)getpid());
        fclose(f);
    }
    for (;;)
        pause();
}
EOF
done

printf 'HW_START_ARGS="%s"\n' "$hw_args" >"$root/etc/default/hw_start"
printf '%s\n' "$run_cmds" >"$root/etc/board/run"
cat >"$root/etc/inittab" <<'EOF'
::sysinit:/etc/init.d/rcS
::shutdown:/bin/umount -a -r
EOF

if [[ $board == virt && $erased == 0 ]]; then
    cp "$record" "$root/etc/board/record.bin"
fi
load_drivers=$(printf 'modprobe %s\n' "${modules[@]}")
cat >"$root/etc/init.d/rcS" <<EOF
#!/bin/sh
# The board's start: file systems, drivers, eth0, then the start scripts.
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
mount -t tmpfs tmpfs /tmp
echo 1 >/proc/sys/kernel/printk
$load_drivers
wait_for() {
    i=0
    while [ ! -e "\$1" ] && [ \$i -lt 100 ]; do usleep 50000; i=\$((i + 1)); done
}
wait_for /dev/mtdblock3
wait_for /sys/class/net/eth0
# Factory programming of the NAND, which comes up erased at every start:
# the record and its copy, as the factory programs a board.
if [ -f /etc/board/record.bin ]; then
    /mnt/mtd/app/devinfo create /dev/mtdblock3 --from /etc/board/record.bin
fi
md5sum </dev/mtdblock3 >/var/run/store.before
ifconfig lo 127.0.0.1 up
ifconfig eth0 10.0.2.15 netmask 255.255.255.0 up
route add default gw 10.0.2.2
for s in /etc/init.d/S??*; do
    [ -x "\$s" ] && "\$s" start
done
EOF
cat >"$root/etc/init.d/S99report" <<'EOF'
#!/bin/sh
# Image only: once the GUI has started, print what the board shows, run
# the extra commands and power off.
i=0
while [ ! -s /var/run/gui.pid ] && [ $i -lt 300 ]; do usleep 100000; i=$((i + 1)); done
usleep 300000
# Start times in clock ticks (USER_HZ, 100 a second) after the kernel's start.
started() { set -- $(cat "/proc/$1/stat" 2>/dev/null); echo "${22:-0}"; }
hw=$(cat /var/run/hw_start.pid)
echo "==== board report"
echo "--- hw_start"
kill -0 "$hw" && echo "running"
echo "--- mtd"
cat /proc/mtd
echo "--- devinfo shm"
/mnt/mtd/app/devinfo shm
echo "--- /firmware"
ls -A /firmware
echo "--- eth0"
echo "driver $(basename "$(readlink /sys/class/net/eth0/device/driver)")"
echo "mac $(cat /sys/class/net/eth0/address)"
ip -4 -o addr show dev eth0 | awk '{ print "inet", $4 }'
echo "--- routes"
ip route
echo "--- store"
echo "before $(cat /var/run/store.before)"
echo "after $(md5sum </dev/mtdblock3)"
echo "--- time"
h=$(started "$hw")
g=$(started "$(cat /var/run/gui.pid)")
echo "hw_start started at $((h * 10)) ms, gui at $((g * 10)) ms: hw_start to gui $(((g - h) * 10)) ms"
echo "--- run"
sh /etc/board/run
sync
echo "==== board done"
poweroff -f
EOF
chmod 755 "$root/etc/init.d/rcS" "$root/etc/init.d/S99report"

# --start-alone: the installed start script gives way to one that starts
# hw_start as a vendor's start script does, with nothing before it. The pid
# file is the report's.
if [[ $start_alone == 1 ]]; then
    chmod -x "$root/etc/init.d/S50hw_start"
    cat >"$root/etc/init.d/S50app" <<EOF
#!/bin/sh
# The camera application: hw_start, which starts the DDNS client and the GUI.
cd /mnt/mtd/app
/mnt/mtd/app/hw_start $hw_args </dev/null >/dev/console 2>&1 &
echo \$! >/var/run/hw_start.pid
EOF
    chmod 755 "$root/etc/init.d/S50app"
fi

# A test tool of tests/tools, cross-built for armhf, into the image as $2.
test_tool() {
    cmake -S "$top" -B "$out/armhf" -DHW_TEST_TOOLS=ON >/dev/null
    cmake --build "$out/armhf" -j"$(nproc)" --target "$1" >/dev/null
    cp "$out/armhf/tests/tools/$1" "$root/$2"
    cp -L /usr/arm-linux-gnueabihf/lib/libgcc_s.so.1 "$root/lib/"
}
[[ $record_io == 0 ]] || test_tool record_io usr/bin/record_io

# --- the boot table (--table DIR) and the bench (--bench DIR) -----------------
# Either replaces the start script and the report: the table's runner
# starts hw_start itself, once for each row; the bench's DIR/run starts it
# many times. The table comes with the logging /bin/sh and the stand-ins of
# the board sandbox (the same text) and the test tool shm_dump for armhf.
if [[ -n $table ]]; then
    test_tool shm_dump etc/board/shm_dump
    mkdir -p "$root/etc/board/table"
    cp -a "$table/." "$root/etc/board/table/"
    "$top/scripts/sandbox" --print-shell "/bin/busybox sh" >"$root/etc/board/table/sh"
    for p in vrn_ddns_client gui; do
        "$top/scripts/sandbox" --print-standin "$p" >"$root/etc/board/table/$p"
    done
    cp "$top/tests/board/table-runner" "$root/etc/board/table-runner"
    runner=/etc/board/table-runner
fi
if [[ -n $bench ]]; then
    mkdir -p "$root/etc/board/bench"
    cp -a "$bench/." "$root/etc/board/bench/"
    runner=/etc/board/bench/run
fi
if [[ -n $table || -n $bench ]]; then
    chmod -x "$root/etc/init.d/S50hw_start"
    cat >"$root/etc/init.d/S99report" <<EOF
#!/bin/sh
# Image for the boot table or the bench: run it, then power off.
sh $runner
sync
echo "==== board done"
poweroff -f
EOF
fi
initrd=$work/initrd.cpio.gz
(cd "$root" && find . | LC_ALL=C sort | cpio -o -H newc -R 0:0 --quiet | gzip -1) >"$initrd"
