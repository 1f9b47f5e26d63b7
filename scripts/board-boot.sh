# shellcheck shell=bash
# scripts/board-boot.sh: the boot of scripts/board, which sources it once
# the initramfs ($initrd) is made: the board's device tree and flash image
# (sabrelite), qemu's command line and trace, then the boot itself, the
# console, the power cut (--cut-after) and the exit status.

# --- board specifics: device tree, flash, qemu --------------------------------
qemu=(qemu-system-arm -smp 1 -display none -monitor none -no-reboot -kernel "$vmlinuz"
    -initrd "$initrd")
append="loglevel=3 panic=-1"
if [[ $board == virt ]]; then
    qemu+=(-M virt -m 256 -serial "file:$work/console.log"
        -netdev user,id=net0,restrict=on -device virtio-net-device,netdev=net0)
    append="console=ttyAMA0 $append"
else
    # The NOR chip's partitions: boot 512 KiB (read-only), env 64 KiB,
    # app 1408 KiB, devinfo (mtd3) the last 64 KiB.
    flash_size=$((2 * 1024 * 1024)) devinfo_off=$((0x1f0000))
    dtb=$work/imx6q-sabrelite.dtb
    {
        dtc -q -I dtb -O dts "$kdir/usr/lib/linux-image-$kver/imx6q-sabrelite.dtb"
        cat <<'EOF'
&{/soc/bus@2000000/spba-bus@2000000/spi@2008000/flash@0} {
	partitions {
		compatible = "fixed-partitions";
		#address-cells = <1>;
		#size-cells = <1>;
		partition@0 { label = "boot"; reg = <0x0 0x80000>; read-only; };
		partition@80000 { label = "env"; reg = <0x80000 0x10000>; };
		partition@90000 { label = "app"; reg = <0x90000 0x160000>; };
		partition@1f0000 { label = "devinfo"; reg = <0x1f0000 0x10000>; };
	};
};
EOF
    } | dtc -q -I dts -O dtb -o "$dtb" -
    if [[ -z $flash ]]; then
        flash=$work/flash.img
        rm -f "$flash"
    fi
    if [[ -e $flash ]]; then
        say "flash image $flash used as it is"
    else
        mkdir -p "$(dirname "$flash")"
        head -c "$flash_size" /dev/zero | tr '\0' '\377' >"$flash"
        # Factory programming: mtd3's image with the record and its copy,
        # as a flash programmer writes it.
        if [[ $erased == 0 ]]; then
            rm -f "$work/devinfo-part.img"
            run_arm "$app/devinfo" create "$work/devinfo-part.img" --from "$record" \
                --partition-size 0x10000 --erase-size 0x1000
            dd if="$work/devinfo-part.img" of="$flash" bs=4096 seek=$((devinfo_off / 4096)) \
                conv=notrunc status=none
        fi
        say "flash image $flash made"
    fi
    [[ $flash_only == 0 ]] || exit 0
    # The board's console is the second UART.
    qemu+=(-M sabrelite -m 512M -dtb "$dtb" -serial null -serial "file:$work/console.log"
        -nic user,restrict=on -drive "if=mtd,format=raw,file=$flash")
    append="console=ttymxc1 $append"
fi
qemu+=(-append "$append")
[[ -z $icount ]] || qemu+=(-icount "shift=$icount,sleep=off")
# The NOR chip's erases and programmed bytes, for power cuts. With a cut,
# qemu writes the trace into a FIFO that the cutter reads.
if [[ -n $trace ]]; then
    mkdir -p "$(dirname "$trace")"
    trace_to=$trace
    if [[ -n $cut_after ]]; then
        trace_to=$work/trace.fifo
        rm -f "$trace_to"
        mkfifo "$trace_to"
    fi
    qemu+=(-trace m25p80_flash_erase -trace m25p80_page_program -D "$trace_to")
fi

# --- boot --------------------------------------------------------------------
log=$work/console.log
: >"$log"
qpid= tpid= cpid=
stop_all() {
    [[ -z $qpid ]] || kill "$qpid" 2>/dev/null || true
    [[ -z $qpid ]] || wait "$qpid" 2>/dev/null || true
    [[ -z $tpid ]] || kill "$tpid" 2>/dev/null || true
    [[ -z ${cpid:-} ]] || kill "$cpid" 2>/dev/null || true
    qpid= tpid= cpid=
}
trap stop_all EXIT
trap 'exit 130' INT TERM
[[ -z $cut_after ]] || cp "$flash" "$work/flash.before"
say "booting $board"
t0=$(date +%s%N)
"${qemu[@]}" </dev/null &
qpid=$!
# The cutter: copies the trace into its file and kills qemu by its PID as
# soon as it has read the K-th operation, then reads the rest that qemu
# wrote before the kill landed and writes the count it found.
cut_made=$work/cut.result
if [[ -n $cut_after ]]; then
    rm -f "$cut_made"
    perl -e 'my ($k, $pid, $fifo, $file, $res) = @ARGV; my ($n, $at) = (0, 0);
        open(my $in, "<", $fifo) or die "trace: $!"; open(my $out, ">", $file) or die "$file: $!";
        fcntl($in, 1031, 4096);  # F_SETPIPE_SZ: qemu waits for the cutter to read
        $out->autoflush(1);
        while (<$in>) { print $out $_; next unless /m25p80_(?:flash_erase|page_program)/;
            if (++$n == $k) { kill "KILL", $pid; $at = $n } }
        open(my $r, ">", $res) or die; print $r "$at $n\n"' \
        "$cut_after" "$qpid" "$trace_to" "$trace" "$cut_made" &
    cpid=$!
fi
# The console, live and with Unix line ends (the guest's tty sends CR LF).
tail -n +1 -f --pid="$qpid" "$log" | tr -d '\r' &
tpid=$!
done_at=
while :; do
    if grep -q '^==== board done' "$log"; then
        done_at=$(date +%s%N)
        break
    fi
    kill -0 "$qpid" 2>/dev/null || break
    (($(date +%s%N) - t0 < timeout_s * 1000000000)) || break
    sleep 0.1
done
# The board powers itself off after the report (virt ends qemu, the i.MX6
# halts); qemu writes the flash image back when it ends.
for _ in $(seq 50); do
    [[ -n $done_at ]] && kill -0 "$qpid" 2>/dev/null && ! grep -q 'reboot: ' "$log" || break
    sleep 0.1
done
if kill -0 "$qpid" 2>/dev/null; then kill "$qpid"; fi
wait "$qpid" 2>/dev/null || true
qpid_was=$qpid qpid=
wait "$tpid" 2>/dev/null || true
tpid=
if [[ -n $cut_after ]]; then
    wait "$cpid" 2>/dev/null || true
    cpid=
    read -r cut_at ops_made <"$cut_made" || cut_at=0 ops_made=0
    if [[ $cut_at == 0 ]]; then
        say "no power cut: the run made $ops_made operations, fewer than $cut_after"
        exit 1
    fi
    # The flash after the cut is what the chip held after exactly K
    # operations: the image from before the boot with the first K traced
    # erases (0xff) and programmed bytes (AND) applied. qemu's own image is
    # checked against all the operations it made: it writes its content
    # back asynchronously, so the last ones may be missing there.
    late=$(perl -e 'my ($pre, $img, $tr, $k) = @ARGV;
        sub slurp { open(my $f, "<:raw", $_[0]) or die "$_[0]: $!"; local $/; return <$f> }
        my $chip = slurp($pre); my $cut; my $n = 0;
        open(my $t, "<", $tr) or die "$tr: $!";
        while (<$t>) {
            if (/flash_erase .*offset = 0x(\w+), len = (\d+)/) { substr($chip, hex $1, $2) = "\xff" x $2 }
            elsif (/page_program .*cur_addr=0x(\w+) data=0x(\w+)/) {
                substr($chip, hex $1, 1) = substr($chip, hex $1, 1) & chr hex $2 }
            else { next }
            $cut = $chip if ++$n == $k }
        my $qemu = slurp($img); my $late = ($qemu ^ $chip) =~ tr/\0//c;
        open(my $o, ">:raw", $img) or die "$img: $!"; print $o $cut; close $o or die; print $late' \
        "$work/flash.before" "$flash" "$trace" "$cut_after")
    say "power cut: qemu (pid $qpid_was) killed at operation $cut_after; operations made: $ops_made;" \
        "bytes qemu's image lacked: $late; the image now holds the flash as operation $cut_after left it"
    exit 0
fi
if [[ -z $done_at ]]; then
    say "no end of the boot within ${timeout_s} s; the console is above ($log)"
    exit 1
fi
say "$board: boot and report in $(((done_at - t0) / 1000000)) ms (wall clock)"
