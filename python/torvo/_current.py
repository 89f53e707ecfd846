"""Which evaluator and which plan hold in this thread or task: those of the innermost `with`."""

from __future__ import annotations

from contextvars import ContextVar
from typing import TYPE_CHECKING

from . import _torvo

if TYPE_CHECKING:
    from ._evaluator import Evaluator
    from ._plan import Plan

# The `with` statements around, the innermost last. A thread begins with none.
evaluators: ContextVar[tuple[Evaluator, ...]] = ContextVar("torvo_evaluators", default=())
plans: ContextVar[tuple[Plan, ...]] = ContextVar("torvo_plans", default=())


def evaluator() -> Evaluator:
    """The evaluator of the innermost `with torvo.Evaluator(keys):`. Raises torvo.Error where there is none."""
    entered = evaluators.get()
    if not entered:
        raise _torvo.Error(
            "no evaluator is set in this thread; "
            "write `with torvo.Evaluator(keys):` around what computes, in each thread"
        )
    return entered[-1]


def plan() -> Plan:
    """The plan of the innermost `with torvo.Plan(context) as plan:`. Raises torvo.Error where there is none."""
    entered = plans.get()
    if not entered:
        raise _torvo.Error(
            "no plan is set in this thread; "
            "write `with torvo.Plan(context) as plan:` around what is planned"
        )
    return entered[-1]
