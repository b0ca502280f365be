#!/usr/bin/env python3
"""Makes data/observations.csv: invented observations of invented stations, the same every time."""

import csv
import math
import random
from pathlib import Path

HOURS = 420
START = 1767225600000  # 2026-01-01T00:00:00Z

STATIONS = [
    ("QX0001", "Château-d'Œx", 46.4747, 7.1306, 968.0, -2.0),
    ("QX0002", "Zürich, Kreis 7", 47.3769, 8.5417, 556.5, 1.5),
    ("QX0003", "A Coruña", 43.3623, -8.4115, 21.0, 11.0),
    ("QX0004", "Łódź \"Północ\"", 51.7592, 19.456, 219.3, -4.0),
    ("QX0005", "漢字山", 35.6528, 138.7331, 1210.0, -1.0),
    ("QX0006", "Tromsø", 69.6492, 18.9553, 12.0, -6.5),
    ("QX0007", "Ushuaia", -54.8019, -68.303, 6.0, 9.5),
    ("QX0008", "Ñuñoa", -33.4569, -70.5974, 567.0, 20.0),
    ("QX0009", "Ísafjörður", 66.0749, -23.135, 2.5, -1.5),
    ("QX0010", "São Tomé", 0.3365, 6.7273, 29.0, 26.5),
    ("QX0011", "Þórshöfn; Pier", 66.2008, -15.3356, 3.0, 0.0),
    ("QX0012", "McMurdo", -77.8419, 166.6863, 10.0, -3.0),
]

REMARKS = [
    "rime on the mast",
    "sensor cleaned, readings before 06:00 are doubtful",
    'observer noted: "halo around the moon"',
    "first line\nsecond line, after a break",
    "dos line\r\nends here too",
    "fog; visibility < 50 m",
    "𝔸lmen station closed 🌨 until noon",
    " leading and trailing blanks ",
    "#not a comment",
    '"',
    "gust of 31.4 m/s, \"worst since 1987\"\nroof damaged",
    "日本語の備考、読点あり",
    "-",
    "back\\slash and tab\there",
]

HEADER = ["station", "name", "position.lat", "position.lon", "position.altitude", "observed_at",
          "temperature", "humidity", "pressure", "wind_speed", "wind_direction", "rain", "quality",
          "manual", "remark"]


def measured(rng, value, digits, missing=0.02):
    """A rounded number, or now and then nothing."""
    return "" if rng.random() < missing else f"{value:.{digits}f}"


def observation(rng, station, hour):
    code, name, lat, lon, altitude, mean = station
    daily = 4.5 * math.sin((hour % 24 - 9) * math.pi / 12 + lon / 57.3)
    temperature = mean + daily + rng.gauss(0, 1.2)
    humidity = min(100.0, max(8.0, 75 - 2.1 * daily + rng.gauss(0, 6)))
    pressure = 1013.25 * math.exp(-altitude / 8434.0) + 9 * math.sin(hour / 37) + rng.gauss(0, 0.4)
    quality = rng.choices(["GOOD", "SUSPECT", "ESTIMATED", "MISSING"], [90, 5, 4, 1])[0]
    rain = rng.expovariate(0.9) if rng.random() < 0.15 else 0.0
    manual = rng.random() < 0.1
    remark = rng.choice(REMARKS) if rng.random() < 0.08 else ""
    if quality == "MISSING":
        readings = ["", "", ""]
    else:
        readings = [measured(rng, temperature, 2), measured(rng, humidity, 1),
                    measured(rng, pressure, 1)]
    return [code, name, lat, lon, altitude, START + hour * 3600000 + rng.randrange(60000)] + \
        readings + [f"{abs(rng.gauss(4, 3)):.1f}", rng.randrange(360), f"{rain:.2f}", quality,
                    "true" if manual else "false", remark]


def main():
    rng = random.Random(20260101)
    target = Path(__file__).resolve().parent / "data" / "observations.csv"
    target.parent.mkdir(exist_ok=True)
    with open(target, "w", encoding="utf-8", newline="") as out:
        table = csv.writer(out, lineterminator="\n")
        table.writerow(HEADER)
        for hour in range(HOURS):
            for station in STATIONS:
                table.writerow(observation(rng, station, hour))


if __name__ == "__main__":
    main()
