# The processes of a run: started apart from the terminal, so that a Ctrl-C reaches them through us
# alone, and never left behind. Sourced, never run; what is sourced before it gives die ().
# shellcheck shell=bash disable=SC2034 # who sources it reads what it sets

own_instance='' # that nobody else can use; what is left of it goes when its processes have ended
interrupted='' # whether a signal asked for the end
host_status='' # of the host, once it has ended
declare -A process=() # name to process id
simulator_end_s=10    # what a process may take to end before it is killed
host_end_s=60         # a long run has much to read for its report

# stop_on_signals: from now on signals ask for the end, and whatever our end everything is stopped.
stop_on_signals() {
  trap on_signal INT TERM HUP
  trap stop_all EXIT
}

on_signal() {
  interrupted=1
  # A second one makes the host end at once. Not SIGINT: a process that has just been started in the
  # background ignores that until it asks for it.
  if [ -n "${process[host]-}" ]; then
    kill -TERM "${process[host]}" 2>/dev/null || true
  else
    exit 130
  fi
}

# start_process NAME LOG COMMAND...: in a session of its own; told to end should we die. Output goes to
# LOG, or where ours goes when that is empty.
start_process() {
  local name=$1 log=$2
  shift 2
  if [ -n "$log" ]; then
    setsid setpriv --pdeathsig TERM -- "$@" >"$log" 2>&1 </dev/null &
  else
    setsid setpriv --pdeathsig TERM -- "$@" </dev/null &
  fi
  process[$name]=$!
}

is_running() {
  [ -n "${process[$1]-}" ] && kill -0 "${process[$1]}" 2>/dev/null
}

# await_line NAME LOG PATTERN SECONDS: until the process says so; ends all when it does not.
await_line() {
  local end=$((SECONDS + $4))
  until grep -q "$3" "$2" 2>/dev/null; do
    if ! is_running "$1"; then
      cat "$2" >&2
      die "the $1 did not start"
    fi
    [ $SECONDS -lt $end ] || die "the $1 is not ready after $4 s, see $2"
    sleep 0.05
  done
}

# await_end host: its exit status goes to host_status. Should it not end although it was told to, it is
# killed.
await_end() {
  local pid=${process[$1]}
  # A signal ends the wait, not the process.
  while is_running "$1" && [ -z "$interrupted" ]; do wait "$pid" || true; done
  await_pid "$pid" $host_end_s
  wait "$pid" 2>/dev/null && host_status=0 || host_status=$?
  unset 'process[host]'
}

# await_pid PID SECONDS: until it has ended; it is killed when that takes longer.
await_pid() {
  local end=$((SECONDS + $2))
  while kill -0 "$1" 2>/dev/null && [ $SECONDS -lt $end ]; do sleep 0.05; done
  kill -KILL "$1" 2>/dev/null || true
}

# stop_process NAME SECONDS: asks, waits, then kills.
stop_process() {
  local pid=${process[$1]-}
  [ -n "$pid" ] || return 0
  kill -TERM "$pid" 2>/dev/null || true
  await_pid "$pid" "$2"
  wait "$pid" 2>/dev/null || true
  unset "process[$1]"
}

# stop_all: the host first, it uses the simulator.
stop_all() {
  stop_process host $host_end_s
  stop_process simulator $simulator_end_s
  if [ -n "$own_instance" ]; then
    # Locks, and what a killed process could not take back.
    case ${XDG_RUNTIME_DIR-} in
      /*) rm -rf "$XDG_RUNTIME_DIR/vorn/$own_instance" ;;
      *) rm -rf "/tmp/vorn-$(id -u)/$own_instance" ;;
    esac
    rm -f /dev/shm/vorn."$own_instance".*
  fi
}
