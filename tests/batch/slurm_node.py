#!/usr/bin/python3
"""A Slurm of one node on this machine, with daemons of its own and traffic on the loopback only."""

import contextlib
import os
import pathlib
import shutil
import socket
import subprocess
import sys
import tempfile
import time

DAEMONS = ("munged", "slurmctld", "slurmd", "sbatch", "scontrol")
START_S = 60

CONFIGURATION = """
ClusterName=one
SlurmctldHost={host}(127.0.0.1)
SlurmctldPort={controller_port}
SlurmdPort={node_port}
SlurmUser={user}
SlurmdUser=root
AuthType=auth/munge
AuthInfo=socket={folder}/munge/socket,cred_expire=5
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
NodeName={host} NodeAddr=127.0.0.1 CPUs={processors} RealMemory={mem_mb} State=UNKNOWN
PartitionName=main Nodes={host} Default=YES MaxTime=INFINITE State=UP
"""


class CannotRun(Exception):
    """Slurm's daemons cannot run here; the text says why."""


class SlurmNode:
    """A running Slurm. `environment` makes its commands find it."""

    def __init__(self):
        self.check()
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="nebulex2-slurm-"))
        self.folder.chmod(0o755)
        self.environment = {
            **os.environ, "SLURM_CONF": str(self.folder / "slurm.conf"),
            "MUNGE_SOCKET": str(self.folder / "munge" / "socket"),
        }
        self.daemons = {}
        self._configure()

    @staticmethod
    def check():
        """Raises CannotRun where the daemons are missing or may not run."""
        path = os.environ.get("PATH", "") + ":/usr/sbin:/sbin"
        missing = [name for name in DAEMONS if shutil.which(name, path=path) is None]
        if missing:
            raise CannotRun("not installed: " + ", ".join(missing))
        if os.geteuid() != 0:
            raise CannotRun("slurmd starts jobs for users and needs root")

    def _configure(self):
        values = {
            "host": socket.gethostname().split(".")[0], "folder": self.folder, "user": "root",
            "controller_port": free_port(), "node_port": free_port(),
            "processors": len(os.sched_getaffinity(0)), "mem_mb": 4000,
        }
        for name in ("munge", "controller", "node"):
            (self.folder / name).mkdir(mode=0o755)
        (self.folder / "slurm.conf").write_text(CONFIGURATION.format(**values))
        key = self.folder / "munge" / "key"
        key.write_bytes(os.urandom(128))
        key.chmod(0o600)

    def start(self):
        munge = self.folder / "munge"
        self._run("munged", "--foreground", "--key-file", munge / "key", "--socket",
                  munge / "socket", "--pid-file", munge / "pid", "--log-file", munge / "log",
                  "--seed-file", munge / "seed", "--num-threads", "2")
        wait_for((munge / "socket").exists, "munged's socket")
        self.start_controller()
        self.start_node()

    def start_controller(self):
        self._run("slurmctld", "-D")
        wait_for(lambda: self.ask("scontrol", "ping").returncode == 0, "the controller")

    def start_node(self):
        """The node, in a process name space of its own: killing that is cutting its power."""
        self._run("slurmd", "-D", inside=("unshare", "--pid", "--fork", "--kill-child", "--mount-proc"))
        wait_for(lambda: self.node_state() in ("idle", "mixed", "allocated"), "the node")

    def node_state(self):
        """idle, mixed, allocated or down; with an asterisk where the node does not answer."""
        return self.ask("sinfo", "-h", "-o", "%T").stdout.decode().strip()

    def _run(self, name, *arguments, inside=()):
        program = shutil.which(name, path=os.environ.get("PATH", "") + ":/usr/sbin:/sbin")
        log = open(self.folder / f"{name}.out", "ab")  # pylint: disable=consider-using-with
        self.daemons[name] = subprocess.Popen(  # pylint: disable=consider-using-with
            [*inside, program, *map(str, arguments)], env=self.environment, cwd=self.folder,
            stdin=subprocess.DEVNULL, stdout=log, stderr=log, start_new_session=True)
        log.close()

    def ask(self, *command):
        return subprocess.run(command, env=self.environment, capture_output=True, check=False,
                              timeout=30)

    def kill(self, name):
        """Ends a daemon as a crash or a power cut would."""
        daemon = self.daemons.pop(name)
        daemon.kill()
        daemon.wait()

    def cut_power(self):
        """Ends the node with all that runs on it, and lets Slurm know at once, which would else wait
        for minutes. Jobs are queued again."""
        self.kill("slurmd")
        name = socket.gethostname().split(".")[0]
        self.ask("scontrol", "update", f"nodename={name}", "state=down", "reason=power")

    def stop(self):
        """Ends all jobs and daemons."""
        if "slurmctld" in self.daemons and "slurmd" in self.daemons:
            with contextlib.suppress(subprocess.TimeoutExpired):
                self.ask("scancel", "--user", "root", "--signal", "KILL")
        for name in ("slurmd", "slurmctld", "munged"):
            if name in self.daemons:
                self.kill(name)
        shutil.rmtree(self.folder, ignore_errors=True)


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for(condition, what, seconds=START_S):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError(f"{what} was not there within {seconds} s")
        time.sleep(0.1)


if __name__ == "__main__":
    # A shell with a Slurm of its own, for trying things out.
    node = SlurmNode()
    try:
        node.start()
        subprocess.run(sys.argv[1:] or ["bash"], env=node.environment, check=False)
    finally:
        node.stop()
