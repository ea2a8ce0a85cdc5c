#!/usr/bin/python3
"""A Slurm of one node on this machine, with daemons of its own and traffic on the loopback only."""

import os
import pathlib
import shutil
import socket
import subprocess
import sys
import tempfile
import time

from waiting import wait_for

SBIN = os.environ.get("PATH", "") + ":/usr/sbin:/sbin"
TOOLS = ("munged", "slurmctld", "slurmd", "sbatch", "scontrol", "unshare", "nsenter", "setpriv", "pkill")

# The node's processes live in a name space of their own, so that one kill is a power cut. Its first
# process waits for all that lose their parents: else they would stay as zombies, and slurmd would take
# their jobs for running.
NAME_SPACE = "unshare", "--pid", "--fork", "--kill-child", "--mount-proc"
FIRST_PROCESS = """
import contextlib, os, signal
signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGCHLD})
open("power", "w").close()
while True:
    signal.sigwait({signal.SIGCHLD})
    with contextlib.suppress(ChildProcessError):
        while os.waitpid(-1, os.WNOHANG)[0]:
            pass
"""

# Times are long because a busy machine may need them: a job that is not there in time is given up and
# started again, and the node that then has it twice is drained. Only a job that is queued again waits
# for cred_expire, and no longer than needed.
CONFIGURATION = """
ClusterName=one
SlurmctldHost={host}(127.0.0.1)
SlurmctldPort={controller_port}
SlurmdPort={node_port}
SlurmUser=root
SlurmdUser=root
AuthType=auth/munge
AuthInfo=socket={folder}/munge/socket,cred_expire=30
CredType=cred/munge
StateSaveLocation={folder}/controller
SlurmdSpoolDir={folder}/node
SlurmctldPidFile={folder}/controller.pid
SlurmdPidFile={folder}/node.pid
SlurmctldLogFile={folder}/controller.log
SlurmdLogFile={folder}/node.log
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU_Memory
SchedulerType=sched/backfill
SchedulerParameters=sched_interval=2,bf_interval=2,batch_sched_delay=0
MpiDefault=none
SwitchType=switch/none
ReturnToService=2
MinJobAge=3600
KillWait=2
BatchStartTimeout=300
MessageTimeout=60
SlurmdTimeout=300
SlurmdParameters=config_overrides
NodeName={host} NodeAddr=127.0.0.1 CPUs={processors} RealMemory=4000 State=UNKNOWN
PartitionName=main Nodes={host} Default=YES MaxTime=INFINITE State=UP
"""


class CannotRun(Exception):
    """Slurm's daemons cannot run here; the text says why."""


class SlurmNode:
    """A Slurm with a state, ports and daemons of its own. `environment` makes its commands find it."""

    def __init__(self, processors=2):
        """The node has so many processors whatever the machine has. Raises CannotRun as `check`
        does."""
        self.check()
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="nebulex2-slurm-"))
        self.folder.chmod(0o755)
        self.name = socket.gethostname().split(".")[0]
        self.environment = {
            **os.environ, "SLURM_CONF": str(self.folder / "slurm.conf"), "SLURM_TIME_FORMAT": "%s",
            "MUNGE_SOCKET": str(self.folder / "munge" / "socket"),
        }
        self.daemons = {}
        self._configure(processors)

    @staticmethod
    def check():
        """Raises CannotRun where the daemons are missing or may not run."""
        missing = [name for name in TOOLS if shutil.which(name, path=SBIN) is None]
        if missing:
            raise CannotRun("not installed: " + ", ".join(missing))
        if os.geteuid() != 0:
            raise CannotRun("slurmd starts jobs for users and needs root")
        tried = subprocess.run([*NAME_SPACE, "true"], stderr=subprocess.PIPE, text=True, check=False)
        if tried.returncode != 0:
            raise CannotRun(f"the node needs a name space of its own: {tried.stderr.strip()}")

    def _configure(self, processors):
        controller_port, node_port = free_ports(2)
        for name in ("munge", "controller", "node"):
            (self.folder / name).mkdir(mode=0o755)
        (self.folder / "slurm.conf").write_text(CONFIGURATION.format(
            host=self.name, folder=self.folder, controller_port=controller_port, node_port=node_port,
            processors=processors))
        key = self.folder / "munge" / "key"
        key.write_bytes(os.urandom(128))
        key.chmod(0o600)

    def start(self):
        munge = self.folder / "munge"
        self._run("munged", "munged", "--foreground", "--key-file", munge / "key", "--socket",
                  munge / "socket", "--pid-file", munge / "pid", "--log-file", munge / "log",
                  "--seed-file", munge / "seed", "--num-threads", "2")
        wait_for((munge / "socket").exists, "munged's socket")
        self.start_controller()
        self.switch_on()

    def start_controller(self):
        self._run("slurmctld", "slurmctld", "-D")
        self._wait_for(lambda: self.ask("scontrol", "ping").returncode == 0, "the controller")

    def switch_on(self):
        """Starts the node as if it had been without power."""
        power = self.folder / "power"
        power.unlink(missing_ok=True)
        self._run("name space", *NAME_SPACE, sys.executable, "-S", "-c", FIRST_PROCESS)
        self._wait_for(power.exists, "the node's name space")
        self.start_slurmd("-b")

    def start_slurmd(self, *options):
        """Starts the node's daemon and waits until the controller has heard of it."""
        place = f"/proc/{self.daemons['name space'].pid}/ns"
        started = int(time.time())
        self._run("slurmd", "nsenter", f"--pid={place}/pid_for_children", f"--mount={place}/mnt",
                  shutil.which("slurmd", path=SBIN), "-D", *options)

        def is_in_service():
            return any(
                node["State"] in ("IDLE", "MIXED", "ALLOCATED")
                and node["SlurmdStartTime"].isdecimal() and int(node["SlurmdStartTime"]) >= started
                for node in self._show("node", self.name) if "SlurmdStartTime" in node)

        self._wait_for(is_in_service, "the node")

    def jobs(self):
        """What Slurm knows about all jobs, in the order of their submission."""
        return sorted((job for job in self._show("job") if "JobId" in job),
                      key=lambda job: int(job["JobId"]))

    def processor_seconds(self):
        """What the jobs that have ended took of the processor since the node was switched on."""
        name_space = str(self.daemons["name space"].pid)
        first = subprocess.run(["pgrep", "-P", name_space], capture_output=True, text=True, check=True)
        fields = pathlib.Path("/proc", first.stdout.strip(), "stat").read_text().rsplit(")", 1)[1].split()
        return sum(int(ticks) for ticks in fields[13:15]) / os.sysconf("SC_CLK_TCK")

    def _show(self, *what):
        """What Slurm knows about nodes or jobs, a dictionary for each."""
        lines = self.ask("scontrol", "-o", "show", *what).stdout.decode().splitlines()
        return [dict(word.split("=", 1) for word in line.split() if "=" in word) for line in lines]

    def _run(self, name, program, *arguments):
        """Starts a daemon, which is killed when this process ends without doing so."""
        with open(self.folder / f"{name}.out", "ab") as log:
            self.daemons[name] = subprocess.Popen(  # pylint: disable=consider-using-with
                ["setpriv", "--pdeathsig", "KILL", shutil.which(program, path=SBIN),
                 *map(str, arguments)],
                env=self.environment, cwd=self.folder, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                start_new_session=True)

    def _wait_for(self, condition, what):
        try:
            wait_for(condition, what)
        except TimeoutError as error:
            raise TimeoutError(f"{error}\n{self.logs()}") from None

    def logs(self):
        """The last that the daemons said."""
        parts = []
        for name in ("controller.log", "node.log"):
            path = self.folder / name
            lines = path.read_text(errors="replace").splitlines() if path.exists() else []
            parts.append("\n".join([f"{name}:", *lines[-40:]]))
        return "\n".join(parts)

    def ask(self, *command):
        return subprocess.run(command, env=self.environment, capture_output=True, check=False,
                              timeout=120)

    def _kill(self, name):
        daemon = self.daemons.pop(name)
        daemon.kill()
        daemon.wait()

    def kill_controller(self):
        """Ends the controller as a crash would, once it has written down all that it knows: what it
        has learnt in the last seconds would be lost, numbers of jobs given out twice."""
        told = time.time()
        for job in self.jobs():
            if job["JobState"] == "RUNNING":
                self.ask("scontrol", "update", f"jobid={job['JobId']}", "comment=save")
        saved = self.folder / "controller" / "job_state"
        self._wait_for(lambda: saved.exists() and saved.stat().st_mtime > told, "the saved state")
        self._kill("slurmctld")

    def kill_slurmd(self):
        """Ends the node's daemon as a crash would; its jobs go on."""
        subprocess.run(["pkill", "-KILL", "-P", str(self.daemons["slurmd"].pid)], check=True)
        self.daemons.pop("slurmd").wait()

    def cut_power(self):
        """Ends all that runs on the node, and lets Slurm know at once, which would else wait for
        minutes. Jobs are queued again."""
        self._kill("name space")
        self.daemons.pop("slurmd").wait()
        self.ask("scontrol", "update", f"nodename={self.name}", "state=down", "reason=power")

    def stop(self):
        """Ends all jobs and daemons."""
        for name in ("name space", "slurmd", "slurmctld", "munged"):
            if name in self.daemons:
                self._kill(name)
        shutil.rmtree(self.folder, ignore_errors=True)


def free_ports(count):
    """Ports of the loopback that nobody uses, all different."""
    probes = [socket.socket() for _ in range(count)]
    try:
        for probe in probes:
            probe.bind(("127.0.0.1", 0))
        return [probe.getsockname()[1] for probe in probes]
    finally:
        for probe in probes:
            probe.close()


if __name__ == "__main__":
    # A shell with a Slurm of its own, for trying things out.
    slurm = SlurmNode()
    try:
        slurm.start()
        subprocess.run(sys.argv[1:] or ["bash"], env=slurm.environment, check=False)
    finally:
        slurm.stop()
