#!/usr/bin/env bash
# Checks the two models with spin, and that each of their properties notices the defects it is there for.
# In: nothing (packages spin and gcc). Out: one line per run; exit 1 when a run ended otherwise than it must.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
wrong=0

#   run holds|fails <what it shows> <model> <pan options> [-D...]     (pan options empty: assertions and end states)
run() {
  local must=$1 what=$2 model=$3 options=$4
  shift 4
  spin -a "$@" "$here/$model.pml" >spin.log 2>&1 || { cat spin.log >&2; exit 1; }
  local claim=-DNFAIR=4
  [ -n "$options" ] || claim=-DNOCLAIM
  gcc -O0 -w "$claim" "$@" -o pan pan.c
  # shellcheck disable=SC2086  # several options
  ./pan -m100000 -w20 $options >pan.log 2>&1 || true
  local found=fails states
  grep -q 'errors: 0$' pan.log && found=holds
  grep -q 'errors:' pan.log || found=unfinished
  grep -q 'max search depth too small' pan.log && found=unfinished
  states=$(awk '/states, stored/ {print $1; exit}' pan.log)
  printf '%-5s as it must: %-75s %8s states\n' "$found" "$what" "${states:-?}"
  if [ "$found" != "$must" ]; then
    echo "check.sh: the line above must say '$must'; spin's report follows" >&2
    cat pan.log >&2
    wrong=1
  fi
}

run holds "one drain at a time; a second signal leaves nothing behind" return_channel ""
run holds "a re-armed batch needs no further signal" return_channel "" -DONE_SIGNAL
run holds "after the second signal the queue becomes empty (fair scheduling)" return_channel "-a -f -N nothing_stays"
run fails "without a second signal a late message may stay" return_channel "" -DNO_SECOND_SIGNAL
run fails "defect noticed: no barrier" return_channel "" -DNO_BARRIER
run fails "defect noticed: barrier tested and set in two steps" return_channel "" -DSPLIT_SWAP
run fails "defect noticed: event written before the barrier is left" return_channel "" -DONE_SIGNAL -DREARM_FIRST
run fails "defect noticed: a used-up batch does not re-arm" return_channel "" -DONE_SIGNAL -DNO_REARM
run fails "defect noticed: the same, by what stays in the queue for ever" return_channel "-a -f -N nothing_stays" -DNO_REARM

run holds "one holder; all finish; every packet judged or passed" try_lock ""
run holds "a gate never waits for a holder that stopped" try_lock "-a -f -N gate_never_waits" -DHOLDER_STOPS
run fails "defect noticed: a gate that waits" try_lock "-a -f -N gate_never_waits" -DHOLDER_STOPS -DGATE_WAITS
run fails "defect noticed: the lock taken twice by one thread" try_lock "" -DNESTED
run fails "defect noticed: the result of the try is not looked at" try_lock "" -DNO_TEST
exit "$wrong"
