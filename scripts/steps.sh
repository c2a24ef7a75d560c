# Sourced by the scripts. step TITLE COMMAND...: prints TITLE as the step's one line and runs
# COMMAND with its whole output added to $step_log, which is named only if the step fails. A
# function given as COMMAND runs without errexit (bash drops it under `if`): chain it with &&.
step_log=${step_log:?set step_log before sourcing scripts/steps.sh}
mkdir -p "$(dirname "$step_log")"
: >"$step_log"

step() {
  local title=$1
  shift
  echo "$title"
  local start
  start=$(wc -l <"$step_log")
  printf '== %s\n' "$title" >>"$step_log"
  if ! "$@" >>"$step_log" 2>&1 </dev/null; then
    echo "That step failed; its last lines:" >&2
    tail -n +"$((start + 2))" "$step_log" | tail -n 20 >&2
    echo "The whole output is in $step_log" >&2
    exit 1
  fi
}
