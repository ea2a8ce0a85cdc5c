"""Checks what is to be done, and decides which frames have to be."""

import os

from snakemake.common import Mode
from snakemake.exceptions import WorkflowError

from nebulex_batch import BatchError, configuration, demands, headers, records
from nebulex_batch.frames import frame_name
from nebulex_batch.plan_of_frame import options_of
from nebulex_batch.planning import Plan

# A job of a cluster reads this file again, for the frames that it was given, and plans nothing.
IS_MAIN = workflow.mode == Mode.default


def make_plan():
    for path in workflow.overwrite_configfiles:
        configuration.read_file(path)
    configuration.check_values(config)
    return Plan(configuration.resolve(config, os.getcwd()))


def forget_jobs():
    """Removes the engine's marks of frames that were in jobs when it was killed. From these it would
    take up a job again, and gives up where a part of the job's frames has begun. Jobs that still run
    are no harm: a frame that one of them works on is waited for."""
    for mark in Path(STATE, ".snakemake", "incomplete").rglob("*"):
        if mark.is_file():
            mark.unlink(missing_ok=True)


if IS_MAIN:
    try:
        PLAN = make_plan()
    except BatchError as error:
        raise WorkflowError(str(error)) from None
    STATE = PLAN.state
    forget_jobs()
else:
    STATE = Path(config["out"]).expanduser().absolute() / records.STATE_FOLDER

BATCH = records.read_record(STATE / records.BATCH_FILE)


workdir: str(STATE)
