"""What the workflow does beside running a plan: frames, demands, one frame's run, the report."""


class BatchError(Exception):
    """Ends the batch before its first frame, with the whole message for the user."""
