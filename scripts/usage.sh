# shellcheck shell=bash
# scripts/usage.sh: sourced by every script, first thing, with the script's
# arguments: -h or --help among them (before a "--") prints the script's
# usage, the text of its header comment, and exits 0 before anything runs.
for _arg; do
    case $_arg in
    --) break ;;
    -h | --help) awk 'NR > 1 && !/^#/ { exit } NR > 1 { sub(/^# ?/, ""); print }' "$0"; exit 0 ;;
    esac
done
unset _arg
