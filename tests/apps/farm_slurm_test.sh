#!/usr/bin/env bash
# Frames on a render farm, for real: a one-node Slurm cluster (its own
# munged, slurmctld and slurmd on free ports, all in a temporary folder)
# renders a six-frame scene in chunks of two. One task is cancelled before
# it runs; --farm-status must name its frames as failed, the images of the
# others must be those `orvo names` lists, and submitting again must render
# the two missing frames only. The cluster is torn down however the test
# ends. A cluster that does not start fails the test with its daemons' logs.
#
# Usage: farm_slurm_test.sh ORVO
set -euo pipefail

orvo=$1
work=$(mktemp -d "${TMPDIR:-/tmp}/orvo-farm-XXXXXX")
chmod 700 "$work"
mkdir -p "$work"/{state,spool,log,run,out,xdg}

stop_cluster() {
    for pidfile in "$work/run/slurmd.pid" "$work/run/slurmctld.pid" "$work/run/munged.pid"; do
        if [ -s "$pidfile" ]; then
            kill "$(cat "$pidfile")" 2>/dev/null || true
        fi
    done
    # Give them a moment to go, then make sure.
    for _ in $(seq 20); do
        alive=0
        for pidfile in "$work"/run/*.pid; do
            [ -s "$pidfile" ] && kill -0 "$(cat "$pidfile")" 2>/dev/null && alive=1
        done
        [ $alive = 0 ] && break
        sleep 0.25
    done
    for pidfile in "$work"/run/*.pid; do
        [ -s "$pidfile" ] && kill -9 "$(cat "$pidfile")" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap stop_cluster EXIT

fail() {
    echo "farm test: $*" >&2
    for log in "$work"/log/*.log; do
        [ -f "$log" ] || continue
        echo "---- $log" >&2
        tail -n 40 "$log" >&2
    done
    exit 1
}

# Debian keeps the daemons in /usr/sbin, which a user's PATH may lack.
export PATH="$PATH:/usr/sbin:/sbin"
for program in munged slurmctld slurmd sbatch squeue scontrol scancel; do
    command -v "$program" >/dev/null ||
        fail "$program is not installed (scripts/setup installs slurm-wlm and munge)"
done

# Two free ports, and the names the daemons go by.
read -r ctl_port node_port < <(python3 -c '
import socket
s = [socket.socket() for _ in range(2)]
for x in s: x.bind(("127.0.0.1", 0))
print(*[x.getsockname()[1] for x in s])')
host=$(hostname -s)
user=$(id -un)

head -c 1024 /dev/urandom > "$work/munge.key"
chmod 400 "$work/munge.key"
munged --socket="$work/munge.sock" --key-file="$work/munge.key" \
    --pid-file="$work/run/munged.pid" --log-file="$work/log/munged.log" \
    --seed-file="$work/munge.seed" --force ||
    fail "munged did not start"

cat > "$work/slurm.conf" <<EOF
ClusterName=orvotest
SlurmctldHost=$host(127.0.0.1)
SlurmUser=$user
SlurmdUser=$user
SlurmctldPort=$ctl_port
SlurmdPort=$node_port
AuthType=auth/munge
CredType=cred/munge
AuthInfo=socket=$work/munge.sock
StateSaveLocation=$work/state
SlurmdSpoolDir=$work/spool
SlurmctldPidFile=$work/run/slurmctld.pid
SlurmdPidFile=$work/run/slurmd.pid
SlurmctldLogFile=$work/log/slurmctld.log
SlurmdLogFile=$work/log/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SchedulerType=sched/builtin
SelectType=select/cons_tres
SelectTypeParameters=CR_Core
ReturnToService=2
MpiDefault=none
MinJobAge=600
NodeName=orvo1 NodeAddr=127.0.0.1 CPUs=2 State=UNKNOWN
PartitionName=orvo Nodes=orvo1 Default=YES MaxTime=INFINITE State=UP
EOF
export SLURM_CONF="$work/slurm.conf"
export XDG_STATE_HOME="$work/xdg"

slurmctld -i || fail "slurmctld did not start"
slurmd -N orvo1 || fail "slurmd did not start"
for _ in $(seq 120); do
    state=$(sinfo -h -n orvo1 -o %t 2>/dev/null || true)
    [ "$state" = idle ] && break
    sleep 0.25
done
[ "$state" = idle ] || fail "the node did not come up (state '${state:-none}')"

# Six frames, each a small picture of a ball.
scene="$work/six.qsl"
cat > "$scene" <<'EOF'
node transform cam
node camera camShape -parent cam
set cam.translateZ 4
node transform ball
node mesh ballShape -parent ball
set ballShape.primitive sphere
set defaultRenderGlobals.animation true
set defaultRenderGlobals.startFrame 1
set defaultRenderGlobals.endFrame 6
set defaultRenderGlobals.imageFormat 32
set defaultRenderGlobals.imageFilePrefix "ball"
set defaultRenderGlobals.putFrameBeforeExt true
EOF
out="$work/out"
render=(render "$scene" -o "$out" --res 24 16 --spp 1 --farm slurm --chunk 2)

wait_for() {
    local job=$1
    for _ in $(seq 480); do
        [ -z "$(squeue -h -j "$job" 2>/dev/null)" ] && return 0
        sleep 0.25
    done
    fail "job $job did not finish in 2 minutes"
}

# Held, so that the second task can be cancelled before it runs.
job=$("$orvo" "${render[@]}" --farm-arg=--hold) || fail "the submission failed"
[[ "$job" =~ ^[0-9]+$ ]] || fail "the submission printed '$job', not a job id"
scancel "${job}_1" || fail "cannot cancel task 1"
scontrol release "$job" || fail "cannot release job $job"
wait_for "$job"

status=$("$orvo" render --farm-status "$job")
echo "$status"
# A task cancelled before it ran leaves no record with a controller that
# keeps no accounting: its frames are missing and count as failed.
grep -q "^task 1, frames 3 4: .*missing: frames 3 4$" <<<"$status" ||
    fail "task 1's frames are not shown missing"
grep -q "^failed frames: 3 4$" <<<"$status" || fail "frames 3 and 4 are not listed as failed"
grep -q "^task 0, frames 1 2: COMPLETED, every image there$" <<<"$status" ||
    fail "task 0 is not shown complete"

# The images are those `orvo names` lists, less the two frames cancelled.
expected=$("$orvo" names "$scene" -o "$out" | grep -v -e '\.0003\.' -e '\.0004\.' || true)
written=$(find "$out" -name 'ball*' -type f | sort)
[ "$(sort <<<"$expected")" = "$written" ] ||
    fail "the images differ from orvo names: expected
$expected
written
$written"
[ "$(wc -l <<<"$written")" = 4 ] || fail "four images expected, got: $written"

# Again: only the missing frames go to the farm.
again=$("$orvo" "${render[@]}" --dry-run)
grep -q "^#SBATCH --array=0-0$" <<<"$again" || fail "a second submission is not one task"
grep -qx "  3,4" <<<"$again" || fail "a second submission does not render frames 3 and 4"
job2=$("$orvo" "${render[@]}") || fail "the second submission failed"
wait_for "$job2"
written=$(find "$out" -name 'ball*' -type f | sort)
[ "$(sort <<<"$("$orvo" names "$scene" -o "$out")")" = "$written" ] ||
    fail "after the second job the images differ from orvo names: $written"
status=$("$orvo" render --farm-status "$job2")
grep -q "^every frame is done$" <<<"$status" || fail "the second job is not done: $status"

# Everything there: nothing to submit.
nothing=$("$orvo" "${render[@]}" 2>&1)
grep -q "nothing to submit" <<<"$nothing" || fail "a complete render was submitted again"
echo "farm test: passed"
