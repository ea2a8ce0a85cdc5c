#!/bin/sh
# status.sh NUMBER
#
# Prints success, running or failed. Only Slurm's own word ends a job: while its controller does not
# answer, the job counts as running. A job that it has forgotten (MinJobAge) is failed; a frame that it
# has finished is not done again.
if ! answer=$(scontrol -o show job "$1" 2>&1); then
  case $answer in
    *'Invalid job id'*) echo failed ;;
    *) echo running ;;
  esac
  exit
fi
case $(printf '%s\n' "$answer" | sed -n 's/.* JobState=\([A-Z_]*\).*/\1/p') in
  COMPLETED) echo success ;;
  PENDING | CONFIGURING | RUNNING | COMPLETING | SUSPENDED | REQUEUED | REQUEUE_* | RESIZING | SIGNALING | STAGE_OUT | STOPPED)
    echo running
    ;;
  *) echo failed ;;
esac
