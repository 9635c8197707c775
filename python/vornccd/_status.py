# SPDX-License-Identifier: MIT
"""What cameras say about themselves while they work."""

from __future__ import annotations

import dataclasses
from typing import Any, NamedTuple, Optional


@dataclasses.dataclass(frozen=True)
class Status:
    """What the camera's sensors and settings say at one moment; what it does not say is None.

    Attributes:
        temperatures: degrees Celsius of each temperature sensor, the imaging sensor first
        cooling: "off", "on", "regulating" or "warming up"
        set_point: target of the cooler in degrees Celsius; only while it regulates
        cooler_power: per cent
        gain: setting, 0 to 63
        offset: setting, 0 to 512
    """

    temperatures: tuple[Optional[float], ...]
    cooling: Optional[str]
    set_point: Optional[float]
    cooler_power: Optional[float]
    gain: Optional[int]
    offset: Optional[int]

    @property
    def temperature(self) -> Optional[float]:
        """Degrees Celsius of the imaging sensor."""
        return self.temperatures[0] if self.temperatures else None

    @classmethod
    def _of(cls, told: dict[str, Any]) -> Status:
        temperatures = tuple(told.pop("temperatures"))
        return cls(temperatures, **told)


@dataclasses.dataclass(frozen=True)
class CoolingProgress:
    """Where a cooling or a warm-up stands.

    Attributes:
        status: what the camera says now
        set_point: what the cooler works towards now, in degrees Celsius; it moves during a ramp
        elapsed: seconds since the start
    """

    status: Status
    set_point: float
    elapsed: float

    def __str__(self) -> str:
        def text(value: Optional[float], unit: str) -> str:
            return "unknown" if value is None else f"{value:.1f} {unit}"

        return (
            f"{self.elapsed:4.0f} s  sensor {text(self.status.temperature, '°C')}  set-point {self.set_point:.1f} °C  "
            f"power {text(self.status.cooler_power, '%')}"
        )


@dataclasses.dataclass(frozen=True)
class ExposureProgress:
    """Where an exposure stands.

    Attributes:
        phase: "starting", "exposing" or "reading"
        elapsed: seconds integrated
        total: seconds to integrate
    """

    phase: str
    elapsed: float
    total: float

    def __str__(self) -> str:
        return f"{self.phase}: {self.elapsed:.1f} of {self.total:.1f} s"


@dataclasses.dataclass(frozen=True)
class Wheel:
    """State of a filter wheel; its positions count from 1.

    Attributes:
        positions: how many there are
        current: where it stands
        target: where it turns to
        moving: whether it turns
    """

    positions: int
    current: int
    target: int
    moving: bool


class Gain(NamedTuple):
    """Settings of the readout.

    Attributes:
        gain: 0 to 63
        offset: 0 to 512
    """

    gain: int
    offset: int
