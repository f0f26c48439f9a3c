"""A program in Python against the installed package: ten minutes straight down a slope are one run."""

import ombrix

fixes = [ombrix.Location(coordinate=ombrix.Coordinate(46.5 - second * 1e-4, 7.25),
                         altitude=2500 - second * 2.0, horizontalAccuracy=4, verticalAccuracy=4,
                         course=-1, courseAccuracy=-1, speed=11, speedAccuracy=-1,
                         timestamp=1700000000 + second)
         for second in range(600)]
with ombrix.Track.of(fixes) as track, ombrix.Day.measure(track) as day:
    print(day.totals.runs, "run")
