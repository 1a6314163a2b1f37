#!/usr/bin/env bash
# A fleet as a job array of a real Slurm on this machine alone: ten tasks, one killed on the way and run again, and the
# merged result must be that of one run, byte for byte. Needs slurmctld, slurmd and munged, and root, since it starts
# them; by hand, not in CI. Usage: slurm-trial.sh TOOL [MACHINES]
set -euo pipefail
tool=$(readlink -f "$1") machines=${2:-1000}
here=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d /tmp/slurm-trial.XXXXXX)
daemons=()
finish() {
    for process in "${daemons[@]}"; do kill "$process" 2>/dev/null || true; done
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap finish EXIT

# --- Slurm with one node, all of its files below the scratch folder
host=$(hostname -s)
mkdir -p "$work"/{munge,state,spool,jobs}
chmod 700 "$work/munge"
chmod 755 "$work"
dd if=/dev/urandom of="$work/munge/key" bs=1024 count=1 status=none
chmod 600 "$work/munge/key"
cat >"$work/slurm.conf" <<CONF
ClusterName=trial
SlurmctldHost=$host(127.0.0.1)
SlurmUser=root
AuthType=auth/munge
AuthInfo=socket=$work/munge/socket
CryptoType=crypto/munge
SlurmctldPort=16817
SlurmdPort=16818
StateSaveLocation=$work/state
SlurmdSpoolDir=$work/spool
SlurmctldPidFile=$work/slurmctld.pid
SlurmdPidFile=$work/slurmd.pid
SlurmctldLogFile=$work/slurmctld.log
SlurmdLogFile=$work/slurmd.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SwitchType=switch/none
MpiDefault=none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
JobAcctGatherType=jobacct_gather/none
ReturnToService=2
JobRequeue=1
SchedulerParameters=batch_sched_delay=1
NodeName=$host NodeAddr=127.0.0.1 CPUs=$(nproc) State=UNKNOWN
PartitionName=all Nodes=$host Default=YES MaxTime=INFINITE State=UP
CONF
export SLURM_CONF=$work/slurm.conf
munged --foreground --force --key-file="$work/munge/key" --socket="$work/munge/socket" \
    --pid-file="$work/munge/pid" --log-file="$work/munge/log" --seed-file="$work/munge/seed" &
daemons+=($!)
until [ -S "$work/munge/socket" ]; do sleep 0.2; done
slurmctld -D -f "$work/slurm.conf" &
daemons+=($!)
slurmd -D -f "$work/slurm.conf" -N "$host" &
daemons+=($!)
for _ in $(seq 60); do
    sinfo -h -o %T 2>/dev/null | grep -q idle && break
    sleep 1
done
sinfo -h -o '%N %T %C'

# --- The machines; one in a hundred is broken, some of those so that they end by the time limit alone
python3 "$here/bench/fleet/make_fleet.py" "$tool" "$work/fleet" "$machines" --broken 100
# --- The same in one run
start=$SECONDS
"$tool" --fleet "$work/fleet/machines" --story replug --ini "$work/fleet/fleet.ini" --out "$work/one" --quiet || [ $? = 1 ]
echo "one run: $((SECONDS - start)) s for $machines machines"

# --- Ten tasks; the fourth is killed while it works
cd "$work/jobs"
export TOOL=$tool FLEET=$work/fleet/machines INI=$work/fleet/fleet.ini STORY=replug OUT=$work/array
start=$SECONDS
job=$(sbatch --parsable --cpus-per-task=1 "$here/examples/fleet.sbatch")
until [ "$(find "$work/array/results" -name '*.json' 2>/dev/null | wc -l)" -gt $((machines * 25 / 100)) ] &&
    squeue -h -t R -o %K -j "$job" | grep -qx 3; do sleep 0.2; done
scancel --signal=KILL --full "${job}_3"
echo "task 3 is killed after $(find "$work/array/results" -name '*.json' | wc -l) results"
while [ -n "$(squeue -h -j "$job")" ]; do sleep 1; done
echo "the array: $((SECONDS - start)) s"
code=0
"$tool" --merge --out "$work/array" --quiet 2>"$work/said" || code=$?
cat "$work/said"
[ "$code" = 2 ] && grep -q 'shard 3 of 10 is incomplete' "$work/said"

# --- That task alone once more
scontrol requeue "${job}_3"
sleep 2
while [ -n "$(squeue -h -j "$job")" ]; do sleep 1; done
"$tool" --merge --out "$work/array" --quiet || [ $? = 1 ]
for part in fleet.jsonl fleet.html results machines; do
    diff -r "$work/one/$part" "$work/array/$part"
done
echo "the merged result is that of one run: $(wc -l <"$work/array/fleet.jsonl") lines, $(tail -n 1 "$work/array/fleet.jsonl" | cut -c -150)"
