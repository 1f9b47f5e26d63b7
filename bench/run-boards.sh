# shellcheck shell=bash
# bench/run-boards.sh: the board part of bench/run, which sources it after
# the sandbox's starts: one bench boot of each board in $boards
# (scripts/board --bench) whose latencies go to $out/bench-BOARD.latency,
# and on sabrelite a devinfo save and recovery with qemu's trace of the
# NOR chip ($out/nor.trace, $out/board-nor.log).

# --- the boards -------------------------------------------------------------
# The same interleaved starts on each emulated board, in one boot: the
# floors run the sandbox's commands with the board's gateway; before each
# start eth0 gets back the MAC it came up with. BusyBox has no ipcrm: every
# start of hw_start but the first finds the shared segment made. Both
# boards hold the record and its flash copy on mtd3.
bb=$out/board-bench
rm -rf "$bb"
mkdir -p "$bb"
cp "$out/bootbench.armhf" "$bb/bootbench"
cp "$out/hw_floor.armhf" "$bb/hw_floor"
cp "$out/hw_empty.armhf" "$bb/hw_empty"
{
    echo '#!/bin/sh'
    printf '%s\n' "${commands[@]//192.168.77.1/10.0.2.2}"
} >"$bb/floor"
{
    echo '#!/bin/sh'
    for c in "${commands[@]//192.168.77.1/10.0.2.2}"; do
        printf "/bin/sh -c '%s'\n" "${c//\'/\'\\\'\'}"
    done
} >"$bb/floor-sh-c"
cat >"$bb/reset" <<'EOF'
#!/bin/sh
# $1 is the kind that starts next: hw_start_plain starts with /dev/mtd3
# out of sight, so hw_start reads the record from /dev/mtdblock3 alone,
# without looking for the flash copy; every other kind finds it in place.
# Every reset runs one mv, of /dev/mtd3 or else of a spare node: what the
# reset leaves in the kernel (freed pages, caches) shortens the next start
# measurably, so it does the same work whatever starts next.
want=/dev/mtd3 have=/dev/mtd3
[ "$1" != hw_start_plain ] || want=/dev/.mtd3.hidden
[ ! -e /dev/.mtd3.hidden ] || have=/dev/.mtd3.hidden
if [ "$want" != "$have" ]; then
    mv "$have" "$want" || exit 1
elif [ -e /dev/.bench.a ]; then
    mv /dev/.bench.a /dev/.bench.b || exit 1
else
    mv /dev/.bench.b /dev/.bench.a || exit 1
fi
ip link set eth0 down
ip link set eth0 address "$FACTORY_MAC"
ip link set eth0 up
ip route replace default via 10.0.2.2 dev eth0
rm -rf /firmware /var/run/gui.t /var/run/gui.t.tmp
EOF
chmod 755 "$bb"/*
for b in "${boards[@]}"; do
    # On virt, also the loader's share: hw_start version against the empty
    # program, each start timed to its exit.
    loader=
    [[ $b != virt ]] || loader="./bootbench exits $loader_runs 5 'hw_start_version=/mnt/mtd/app/hw_start version' \\
    empty=/etc/board/bench/hw_empty"
    cat >"$bb/run" <<EOF
#!/bin/sh
# On the board: hw_start (with and without /dev/mtd3) and the floors,
# interleaved; bootbench is the GUI and the DDNS client too.
cd /etc/board/bench
cp bootbench /mnt/mtd/app/gui
cp bootbench /mnt/mtd/app/vrn_ddns_client
export FACTORY_MAC=\$(cat /sys/class/net/eth0/address)
touch /dev/.bench.a
dd if=/dev/mtdblock3 of=/tmp/record.bin bs=280 count=1 2>/dev/null
echo "==== bench"
./bootbench latency $board_runs 2 /etc/board/bench/reset hw_start=/mnt/mtd/app/hw_start \\
    hw_start_plain=/mnt/mtd/app/hw_start 'hw_start_file=/mnt/mtd/app/hw_start dev3_file=/tmp/record.bin' \\
    floor_program=/etc/board/bench/hw_floor floor_sh_c=/etc/board/bench/floor-sh-c \\
    floor=/etc/board/bench/floor
./reset hw_start
$loader
echo "==== bench end"
EOF
    chmod 755 "$bb/run"
    echo "bench/run: $board_runs starts of each kind on $b" >&2
    if ! "$top/scripts/board" --board "$b" --out "$out/board" --bench "$bb" --timeout 900 \
        "${board_clock[@]}" >"$out/board-$b.log" 2>&1 || ! grep -q '^==== bench end' "$out/board-$b.log"; then
        echo "bench/run: no bench from the $b board; see $out/board-$b.log" >&2
        exit 1
    fi
    sed -n '/^==== bench$/,/^==== bench end/p' "$out/board-$b.log" | tr -d '\r' >"$out/bench-$b.latency"
done

# A devinfo save and a recovery on the NOR board, in a boot of its own with
# qemu's trace of the chip.
nor_run='d=/mnt/mtd/app/devinfo; time $d set --no-apply board_name=IPC_BENCH
dd if=/dev/zero of=/dev/mtdblock3 bs=280 count=1 conv=fsync 2>/dev/null
time $d recover; time $d recover'
if [[ " ${boards[*]} " == *" sabrelite "* ]] &&
    ! "$top/scripts/board" --board sabrelite --out "$out/board" --trace "$out/nor.trace" \
        --run "$nor_run" >"$out/board-nor.log" 2>&1; then
    echo "bench/run: the sabrelite board did not boot; see $out/board-nor.log" >&2
    exit 1
fi
