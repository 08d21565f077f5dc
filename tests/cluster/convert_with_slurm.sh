#!/usr/bin/env bash
# Converts a database on a Slurm cluster of one node, which this script starts for itself and ends again.
#
#     convert_with_slurm.sh TOOL [names]      TOOL: sceneutils; names: compare the outputs' names only, not their bytes
#
# Needs Slurm, MUNGE and root; ends with status 77 where there is no such thing. It has its own configuration, key,
# sockets and ports, and does not touch daemons of the system.
set -euo pipefail
tool=$(realpath "$1")
compare=${2:-bytes}

skip() {
    echo "SKIPPED: $1"
    exit 77
}

PATH=$PATH:/usr/sbin:/sbin
for program in munged slurmctld slurmd sbatch srun scancel scontrol; do
    command -v "$program" >/dev/null || skip "$program is not installed (Debian packages slurm-wlm and munge)"
done
[ "$(id -u)" -eq 0 ] || skip "only root can start a Slurm of its own"

unset "${!SLURM@}" "${!SBATCH@}" "${!SRUN@}" # of an allocation that this may be running in
work=$(mktemp -d /tmp/sceneutils-slurm-XXXXXX)
export SLURM_CONF=$work/slurm.conf

# All that belongs to this Slurm has its configuration in the environment: the daemons, the steps and what they run.
own_processes() {
    grep -lzxF -- "SLURM_CONF=$SLURM_CONF" /proc/[0-9]*/environ 2>/dev/null | sed 's/[^0-9]//g' || true
}

clean_up() {
    local status=$? pid
    trap - EXIT
    if [ "$status" -ne 0 ] && [ "$status" -ne 77 ]; then tail -n 30 "$work"/*.log "$work"/job.* || true; fi
    # Again, because one may have started another in the meantime.
    for _ in 1 2 3 4 5; do
        for pid in $(own_processes); do kill -KILL "$pid" 2>/dev/null || true; done
    done
    rm -rf "$work"
    exit "$status"
}
trap clean_up EXIT
trap 'exit 130' INT TERM HUP

fail() {
    echo "FAILED: $1"
    exit 1
}

# wait_until SECONDS COMMAND...
wait_until() {
    local end=$((SECONDS + $1))
    shift
    until "$@"; do
        [ "$SECONDS" -lt "$end" ] || return 1
        sleep 0.05
    done
}

# --- One node of two processors -------------------------------------------------------------------------------------

host=$(uname -n)
host=${host%%.*}

configure() {
    # Below the ports that the system gives away by itself. If one is taken, the daemon ends, and others are tried.
    local port=$((10000 + RANDOM % 20000))
    cat >"$SLURM_CONF" <<CONFIGURATION
ClusterName=sceneutils
SlurmctldHost=$host(127.0.0.1)
SlurmctldPort=$port
SlurmdPort=$((port + 1))
SlurmUser=root
AuthType=auth/munge
AuthInfo=socket=$work/munge.socket
CredType=cred/munge
StateSaveLocation=$work/state
SlurmdSpoolDir=$work/spool
SlurmctldPidFile=$work/slurmctld.pid
SlurmdPidFile=$work/slurmd.pid
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
MpiDefault=none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU_Memory
SchedulerParameters=sched_interval=1,batch_sched_delay=0
KillWait=5
ReturnToService=2
NodeName=$host NodeAddr=127.0.0.1 CPUs=2 RealMemory=1000
PartitionName=all Nodes=$host Default=YES MaxTime=INFINITE
CONFIGURATION
}

is_node_idle() { [ "$(timeout 5 sinfo --noheader --format %T 2>/dev/null)" = idle ]; }
has_ended() { ! kill -0 "$1" 2>/dev/null; }
is_decided() { is_node_idle || has_ended "$controller" || has_ended "$node"; }

start_munge() {
    head -c 1024 /dev/urandom >"$work/munge.key"
    chmod 600 "$work/munge.key"
    munged --foreground --force --key-file="$work/munge.key" --socket="$work/munge.socket" \
        --pid-file="$work/munged.pid" --seed-file="$work/munge.seed" >"$work/munged.log" 2>&1 &
    disown
    wait_until 30 test -S "$work/munge.socket"
}

start_slurm() {
    mkdir -p "$work/state" "$work/spool"
    echo "CgroupPlugin=cgroup/v1" >"$work/cgroup.conf"
    for _ in 1 2 3 4 5; do
        configure
        slurmctld -D >"$work/slurmctld.log" 2>&1 &
        controller=$!
        disown
        slurmd -D -N "$host" >"$work/slurmd.log" 2>&1 &
        node=$!
        disown
        if wait_until 30 is_decided && is_node_idle; then return; fi
        kill "$controller" "$node" 2>/dev/null || true
        wait_until 30 has_ended "$controller" || return 1
        wait_until 30 has_ended "$node" || return 1
        rm -rf "${work:?}"/state/* "${work:?}"/spool/*
    done
    return 1
}

start_munge || { cat "$work/munged.log"; skip "munged cannot be started"; }
start_slurm || { tail -n 20 "$work"/slurm*.log; skip "Slurm cannot be started"; }

# --- The conversions ------------------------------------------------------------------------------------------------

# A name that would do harm if anything took it for more than a name.
export HARM=$work/harm
base=$work/$'o\'d $(touch "$HARM") `touch "$HARM"`\r\n#SBATCH --nodes=99\n-x'
mkdir "$base"
in=$base/in
out=$base/out
script=$base/go.sh
tiles=200

# submit ARGUMENTS...: sets `job`
submit() { job=$(cd / && sbatch --parsable --mem=500 --output="$work/job.%j" "$script" "$@"); }
field() { scontrol --oneliner show job "$job" | tr ' ' '\n' | sed -n "s/^$1=//p"; }
is_over() { case $(field JobState) in PENDING | RUNNING | COMPLETING) return 1 ;; esac }
expect_end() { # STATE EXIT_CODE
    wait_until 120 is_over || fail "job $job does not end"
    local end
    end="$(field JobState) $(field ExitCode)"
    [ "$end" = "$1 $2" ] || fail "job $job ended as $end, not as $1 $2"
}
log_has() { grep -qF -- "$1" "$work/job.$job" || fail "the output of job $job does not say: $1"; }

converted() { find "$out" -name '*.ive' -type f 2>/dev/null | wc -l; }
has_converted() { [ "$(converted)" -ge "$1" ]; }
# The processes that steps have begun with: children of Slurm's, not of the tool's.
job_processes() {
    local pid parent
    for pid in $(own_processes); do
        grep -qzxF convert-job "/proc/$pid/cmdline" 2>/dev/null || continue
        parent=$(sed -n 's/^PPid:[^0-9]*//p' "/proc/$pid/status" 2>/dev/null)
        grep -q '^slurmstepd' "/proc/$parent/comm" 2>/dev/null && echo "$pid"
    done
    return 0
}
are_two_at_work() { [ "$(job_processes | wc -l)" -ge 2 ]; }
nobody_is_at_work() { [ -z "$(job_processes)" ]; }
kill_one_job() {
    local victim
    victim=$(job_processes | head -n 1)
    [ -n "$victim" ] && kill -KILL "$victim" 2>/dev/null
}

# OpenSceneGraph's OpenFlight writer, which the conversions have no use for, never frees these.
printf '%s\n' leak:flt::FltExportVisitor leak:flt::VertexPaletteManager >"$work/known-leaks"
LSAN_OPTIONS="suppressions=$work/known-leaks:print_suppressions=0" "$tool" sample "$in" --tiles "$tiles" --levels 1 >"$work/sample.log"
"$tool" convert "$in/master.flt" "$work/expected/w.ive" --recurse --jobs 2 --max-range 5000 >"$work/local.log" 2>&1
(cd "$base" && "$tool" plan in/master.flt -o out/w.ive --slurm go.sh --jobs 2 --max-range 5000 >"$work/plan.log" 2>&1)

# Cancelled in the middle: nothing goes on, nothing half is left.
submit
wait_until 60 are_two_at_work || fail "no two steps are at work at the same time"
wait_until 120 has_converted 20 || fail "nothing is converted"
has_converted "$tiles" && fail "too late to cancel anything"
scancel "$job"
expect_end CANCELLED 130:0
log_has "sceneutils: interrupted"
wait_until 30 nobody_is_at_work || fail "jobs are at work after the run was cancelled"
[ -z "$(find "$out" -name '.*.ive.part-*')" ] || fail "a cancelled run has left half files"
[ ! -e "$out/w.ive" ] || fail "the master was converted ahead of its tiles"

# A process of a step killed in the middle: the rest is converted.
submit
wait_until 120 has_converted 60 || fail "the second run converts nothing"
wait_until 120 kill_one_job || fail "there is no job to kill"
expect_end FAILED 5:0
log_has "was not converted: its process, or that of a file that it refers to, was ended"
log_has "srun: error: "

# Gone on with to the end, and once more.
submit --report "$work/report.json"
expect_end COMPLETED 0:0
log_has "$((tiles + 1)) files read, $((tiles + 1)) converted, 0 failed"
[ -s "$work/report.json" ] || fail "the script's arguments do not reach the conversion"
submit
expect_end COMPLETED 0:0
log_has "$((tiles + 1)) were up to date"

[ ! -e "$HARM" ] || fail "a name was run as a command"
list() { (cd "$1" && find . -path ./.sceneutils -prune -o -type f -print | sort); }
[ "$(list "$out")" = "$(list "$work/expected")" ] || fail "other files than by a local conversion"
[ "$(list "$out" | grep -c '\.ive$')" -eq $((tiles + 1)) ] || fail "not all files were converted"
if [ "$compare" = bytes ]; then
    diff -r --exclude=.sceneutils "$work/expected" "$out" || fail "other bytes than by a local conversion"
fi
echo "PASSED: $((tiles + 1)) files in steps of Slurm, interrupted twice, in $SECONDS s"
