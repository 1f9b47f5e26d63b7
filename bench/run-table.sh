# shellcheck shell=bash
# bench/run-table.sh: the end of bench/run, which sources it once every
# measure is taken: the table of the sandbox's and the boards' figures,
# then one "judged:" line for each figure that is held to a target.

# --- the table ------------------------------------------------------------
lat() { awk -v n="$1" -v f="$2" '$1 == n { print $f }' "${3:-$root/tmp/bench.latency}"; }
ratio_of() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", a / b }'; }
idle() { awk -v n="$1" '$1 == n { print $2 }' "$root/tmp/bench.idle"; }
ms() { awk -v us="$1" 'BEGIN { printf "%.2f ms", us / 1000 }'; }
verdict() { if awk "BEGIN { exit !($1) }"; then echo ok; else echo missed; fi; }
# judge WHERE WHAT KEY VALUE TARGET CONDITION: one judged line, kept for
# the end, whose NAME is the one word WHERE/WHAT; the verdict also goes to
# $v for the table's row.
judged=()
judge() {
    v=$(verdict "$6")
    judged+=("judged: $1/$2 $3=$4 target=$5 $v")
}

hw_us=$(lat hw_start 3)
floor_us=$(lat floor 3)
sh_us=$(lat floor_sh_c 3)
prog_us=$(lat floor_program 3)
ratio=$(ratio_of "$hw_us" "$floor_us")
ratio_sh=$(ratio_of "$hw_us" "$sh_us")
ratio_prog=$(ratio_of "$hw_us" "$prog_us")
private=$(idle private_kib)
wakeups=$(awk -v s="$(idle switches)" -v t="$idle_s" 'BEGIN { printf "%.0f", s * 60 / t }')
instr=$(cat "$root/tmp/bench.instr")
tools="host dash + net-tools"
[[ $busybox == 0 ]] || tools="BusyBox"

row() { printf '%-46s %-26s %-12s %s\n' "$@"; }
echo
echo "hw_start $(git -C "$top" describe --always --dirty 2>/dev/null || echo '?'), board sandbox with $tools"
if [[ ${#boards[@]} -gt 0 ]]; then
    if [[ ${#board_clock[@]} -gt 0 ]]; then
        echo "boards: guest time, 1 ns per instruction executed (qemu -icount shift=0,sleep=off)"
    else
        echo "boards: qemu's real-time clock (--wall-clock): varies with the host's load"
    fi
fi
row "measure" "value" "target" ""
row "----------------------------------------------" "--------------------------" "------------" "------"
# The bytes loaded, and the libraries needed: the C library and its loader.
declare -A max_loaded=([armhf]=20480 [aarch64]=30720)
for a in "${arches[@]}"; do
    l=$(loaded_of "$out/hw_start.$a") target="-" v=""
    if [[ -n ${max_loaded[$a]:-} ]]; then
        target="<= ${max_loaded[$a]} B"
        judge "$a" loaded-size bytes "$l" "${max_loaded[$a]}" "$l <= ${max_loaded[$a]}"
    fi
    row "loaded bytes (PT_LOAD), $a" "$l B (empty $(loaded_of "$out/hw_empty.$a") B)" "$target" "$v"
    row "  file size, stripped" "$(size_of "$out/hw_start.$a") B" "" ""
done
for a in "${arches[@]}"; do
    n=$(needed_of "$out/hw_start.$a") loader=$(loader_of "$out/hw_start.$a")
    others=$(tr ' ' '\n' <<<"$n" | { grep -v -x -F -e libc.so.6 -e "$loader" || true; } | tr '\n' ' ')
    if [[ -n ${max_loaded[$a]:-} ]]; then
        judge "$a" libraries needed "${n// /,}" libc+loader "\"$others\" == \"\""
    else
        v=$(verdict "\"$others\" == \"\"")
    fi
    row "NEEDED, $a" "$n" "libc, loader" "$v"
done
row "idle private memory (x86_64)" "$private KiB (rss $(idle rss_kib))" "<= 256 KiB" "$(verdict "$private <= 256")"
row "idle wake-ups per minute" "$wakeups (over ${idle_s} s)" "-" ""
row "boot latency, hw_start (median)" "$(ms "$hw_us") [p10 $(ms "$(lat hw_start 4)")]" "" ""
row "boot latency, floor: each command via sh -c" "$(ms "$sh_us") [p10 $(ms "$(lat floor_sh_c 4)")]" "" ""
judge sandbox per-command-floor ratio "$ratio_sh" 1.10 "$ratio_sh <= 1.10"
row "ratio hw_start / that floor" "$ratio_sh" "<= 1.100" "$v"
row "  reference: floor program (median)" "$(ms "$prog_us"), ratio $ratio_prog" "" ""
row "  reference: one shell runs them all (median)" "$(ms "$floor_us"), ratio $ratio" "" ""
row "instructions, own process, one boot" "$instr (callgrind)" "-" ""
for b in "${boards[@]}"; do
    f=$out/bench-$b.latency
    b_hw=$(lat hw_start 3 "$f") b_plain=$(lat hw_start_plain 3 "$f") b_prog=$(lat floor_program 3 "$f")
    b_sh=$(lat floor_sh_c 3 "$f") b_floor=$(lat floor 3 "$f") b_file=$(lat hw_start_file 3 "$f")
    b_ratio=$(ratio_of "$b_hw" "$b_prog")
    # (No "-0.00" for a difference that rounds to nothing.)
    b_extra=$(awk -v a="$b_hw" -v b="$b_plain" \
        'BEGIN { d = (a - b) / 1000; printf "%.2f", (d > -0.005 && d < 0.005) ? 0 : d }')
    row "boot to GUI, qemu $b, hw_start (median)" "$(ms "$b_hw") [p10 $(ms "$(lat hw_start 4 "$f")")]" "" ""
    row "  floor program: system() per command" "$(ms "$b_prog") [p10 $(ms "$(lat floor_program 4 "$f")")]" "" ""
    judge "$b" floor-program ratio "$b_ratio" 1.05 "$b_ratio <= 1.05"
    row "  ratio hw_start / floor program" "$b_ratio" "<= 1.050" "$v"
    row "  hw_start, /dev/mtd3 hidden (plain read)" "$(ms "$b_plain")" "" ""
    judge "$b" read-through-copy extra_ms "$b_extra" 2 "$b_extra <= 2"
    row "  read through the copy: extra time" "$b_extra ms" "<= 2 ms" "$v"
    row "  reference: hw_start, record in a file" "$(ms "$b_file")" "" ""
    row "    so the flash read takes" "$(ms "$(awk -v a="$b_hw" -v b="$b_file" 'BEGIN { print a - b }')")" "" ""
    row "  reference: BusyBox sh -c per command" "$(ms "$b_sh"), ratio $(ratio_of "$b_hw" "$b_sh")" "" ""
    row "  reference: BusyBox, one shell for all" "$(ms "$b_floor"), ratio $(ratio_of "$b_hw" "$b_floor")" "" ""
    if [[ -n $(lat empty 3 "$f") ]]; then
        l_hw=$(lat hw_start_version 3 "$f") l_empty=$(lat empty 3 "$f")
        l_ratio=$(ratio_of "$l_hw" "$l_empty")
        row "start to exit, qemu $b, hw_start version" "$(ms "$l_hw") [p10 $(ms "$(lat hw_start_version 4 "$f")")]" "" ""
        row "  empty program built the same way" "$(ms "$l_empty") [p10 $(ms "$(lat empty 4 "$f")")]" "" ""
        judge "$b" loader ratio "$l_ratio" 1.10 "$l_ratio <= 1.10"
        row "  ratio (the loader's share)" "$l_ratio" "<= 1.100" "$v"
    fi
done
if [[ -e $out/board-nor.log ]]; then
    # The trace's erases: 1-2 the save's, 3 the tear's, 4 on the recovery's.
    nor_ops() {
        awk -v from="$1" -v to="$2" '/flash_erase/ { e++ } e >= from && e <= to {
            if (/flash_erase/) n++; else if (/page_program/) b++ }
            END { printf "%d erases, %d bytes programmed", n, b }' "$out/nor.trace"
    }
    real() { grep '^real' "$out/board-nor.log" | sed -n "${1}p" | tr -d '\r' | awk '{ print $2, $3 }'; }
    row "devinfo set on NOR (sabrelite)" "$(real 1), $(nor_ops 1 2)" "-" ""
    row "devinfo recover, torn record (sabrelite)" "$(real 2), $(nor_ops 4 9)" "-" ""
    row "devinfo recover, nothing to do" "$(real 3)" "-" ""
fi
echo "($(lat hw_start 2) starts of each kind in the sandbox, $board_runs on each board," \
    "$loader_runs for the loader; latencies in $root/tmp/bench.latency and $out/bench-BOARD.latency)"
echo
printf '%s\n' "${judged[@]}"
