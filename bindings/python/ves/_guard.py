"""Keeps exceptions of call-backs away from the library, which cannot unwind."""

import signal
import threading
import traceback

from ._processes import ProcessError


class Guard:
    """Runs routines of the caller and keeps the first exception until a run has ended.

    After it no routine is called any more: operators give NaN, which ends a run on all processes,
    and the monitor asks for the end. The processes that are called agree on it after every call of
    an operator, so that none of them waits for the messages of one that has failed. A Ctrl-C
    between call-backs counts as an exception of the next one; on several processes, where others
    may wait for its messages, after it has returned.

    Parameters
    ----------
    team : Alone
        The processes of the call.
    calls_everywhere : bool
        Whether processes without rows take part in operators like those that hold some.

    Attributes
    ----------
    failed : bool
        Whether a routine failed here or, as far as it is known, on another process.
    interrupted : bool
        Whether a Ctrl-C waits for the next call-back.
    takes_part : bool
        Whether operators are called on this process.
    """

    def __init__(self, team, calls_everywhere=False):
        self._team = team
        self.calls_everywhere = calls_everywhere
        self._peers = None
        self._error = None
        self._inside = False
        self.interrupted = False
        self._former = None
        self.failed = False

    def __enter__(self):
        if threading.current_thread() is threading.main_thread():
            former = signal.getsignal(signal.SIGINT)
            is_ours = isinstance(getattr(former, "__self__", None), Guard)
            if former is signal.default_int_handler or is_ours:
                self._former = former
                signal.signal(signal.SIGINT, self._on_interrupt)
        return self

    def __exit__(self, kind, *_):
        if self._former is not None:
            signal.signal(signal.SIGINT, self._former)
        if self.interrupted and kind is None:
            raise KeyboardInterrupt

    def _on_interrupt(self, *_):
        # Raised only where attempt() catches it, at most once for each call. On several processes
        # only a second one stops a routine in the midst of its messages.
        if self._inside and (self._team.size == 1 or self.interrupted):
            self._inside = False
            raise KeyboardInterrupt
        self.interrupted = True

    def attempt(self, function, *arguments):
        """Result of a routine, or None where it or an earlier one failed. Local."""
        if self.failed:
            return None
        try:
            if self._team.size == 1:
                self._raise_interrupt()
            result = self._run(function, arguments)
            self._raise_interrupt()
            return result
        except BaseException as error:  # also KeyboardInterrupt and SystemExit
            self._error = error
            self.failed = True
            return None

    def _raise_interrupt(self):
        if self.interrupted:
            self.interrupted = False
            raise KeyboardInterrupt

    def _run(self, function, arguments):
        # A Ctrl-C on the way out, even before the flag falls, is still caught by attempt().
        self._inside = True
        try:
            return function(*arguments)
        finally:
            self._inside = False

    def have_rows(self, is_member):
        """Says whether this process holds rows. Collective over the team."""
        self.takes_part = is_member or self.calls_everywhere
        self._peers = self._team.split(self.takes_part)

    def attempt_together(self, function, *arguments):
        """As attempt, agreed on by the processes that take part; True where all succeeded."""
        self.attempt(function, *arguments)
        self.failed = self._peers.any(self.failed)
        return not self.failed

    def agree(self, flag):
        """Whether the flag is set, or something failed, on any process. Collective."""
        self.failed = self._team.any(self.failed)
        return self._team.any(bool(flag)) or self.failed

    def settle(self):
        """Raises what was kept: the exception itself where it happened, ProcessError on the other
        processes. Collective."""
        error, self._error = self._error, None
        texts = self._team.gather(None if error is None else _text_of(error))
        if error is not None:
            try:
                raise error
            finally:
                del error  # which holds this frame, and by it all that the run held
        failed = [(rank, text) for rank, text in enumerate(texts) if text is not None]
        if failed:
            rank, text = failed[0]
            raise ProcessError(f"process {rank} failed with {text}")


def _text_of(error):
    """Type and message, also where the caller's exception fails to tell its own."""
    return "".join(traceback.format_exception_only(type(error), error)).strip()
