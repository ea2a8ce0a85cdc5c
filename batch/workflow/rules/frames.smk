"""One job for each frame."""

import functools


wildcard_constraints:
    frame=r".+",


def all_statuses(_):
    return [f"status/{identifier}.json" for identifier in PLAN.identifiers()]


@functools.lru_cache(maxsize=None)
def pixels(identifier):
    return headers.pixels(os.path.join(BATCH["in"], frame_name(identifier)))


def mem_mb(wildcards, attempt):
    name = frame_name(wildcards.frame)
    options = options_of(BATCH, name)
    return demands.memory_mb(
        pixels(wildcards.frame), name, options, attempt, BATCH["largest_mem_mb"]
    )


def runtime(wildcards, attempt):
    options = options_of(BATCH, frame_name(wildcards.frame))
    return demands.runtime_minutes(
        pixels(wildcards.frame), options, attempt, BATCH["seconds_per_tile"], BATCH["threads"]
    )


# The frame itself is no input: its name may hold what the engine takes for a pattern, and the plan
# already knows whether it has changed. Its results are no outputs: the engine removes those of every
# frame of a job when one of them is killed.
rule starless:
    output:
        "status/{frame}.json",
    group:
        "frames"
    threads: BATCH["threads"]
    retries: BATCH["attempts"] - 1
    resources:
        mem_mb=mem_mb,
        runtime=runtime,
        slot=1,
        attempt=lambda wildcards, attempt: attempt,
    params:
        runner=str(BATCH_FOLDER / "workflow" / "nebulex_batch" / "run_frame.py"),
        state=str(STATE),
    shell:
        "exec {sys.executable:q} {params.runner:q} {params.state:q} {wildcards.frame:q}"
        " {resources.attempt} {resources.mem_mb} {resources.runtime}"
