"""What only the package can get wrong: ownership, iteration, buffers, errors and the event loop."""

import asyncio
import gc
import os
import pathlib
import subprocess
import tempfile
import unittest

import ombrix
from ombrix import requests, settings


def slope(count=600):
    """Ten minutes straight down."""
    return [ombrix.Location(coordinate=ombrix.Coordinate(46.5 - second * 1e-4, 7.25),
                            altitude=2500 - second * 2.0, horizontalAccuracy=4,
                            verticalAccuracy=4, course=180, courseAccuracy=-1, speed=11,
                            speedAccuracy=-1, timestamp=1700000000 + second)
            for second in range(count)]


class NothingLeaks(unittest.TestCase):
    """Fails a test that keeps a handle of the library."""

    def run(self, result=None):
        gc.collect()
        before = ombrix.live_handles()
        super().run(result)
        gc.collect()
        if ombrix.live_handles() != before:
            result.addFailure(self, (AssertionError, AssertionError("a handle was kept"), None))


class Tracks(NothingLeaks):
    def test_a_track_is_written_read_and_measured(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "my träck.csv")
            with ombrix.TrackWriter(path) as writer:
                for fix in slope():
                    writer.add(fix)
                self.assertEqual(writer.fixes_written, 600)
            with ombrix.Track.read(path) as track, ombrix.Day.measure(track) as day:
                self.assertEqual(len(track), 600)
                self.assertEqual([fix.altitude for fix in track][:2], [2500, 2498])
                self.assertEqual(track.fixes[-1].timestamp, 1700000599)
                self.assertEqual(day.totals.runs, 1)
                self.assertAlmostEqual(day.totals.all.descent, 1198, delta=1)
                self.assertEqual(day.segments[0].kind, ombrix.SegmentKind.RUN)
                self.assertEqual(len(day.samples), day.totals.fixesUsed)

    def test_stores(self):
        with tempfile.TemporaryDirectory() as folder:
            with ombrix.FileStore(pathlib.Path(folder, "one.bin")) as one:
                self.assertEqual((one.value, bool(one)), (None, False))
                one.value = b""
                self.assertEqual((one.value, bool(one)), (b"", True))
                one.value = None
                self.assertFalse(one)
            with ombrix.KeyedStore(pathlib.Path(folder, "many"), "txt") as many:
                many["a"], many["b"] = b"1", b"22"
                self.assertEqual((sorted(many), many["b"]), (["a", "b"], b"22"))
                del many["a"]
                self.assertNotIn("a", many)
                with self.assertRaises(KeyError):
                    many["a"]

    def test_laps(self):
        lap = (b"<TrainingCenterDatabase><Activities><Activity Sport='Running'>"
               b"<Lap StartTime='2026-01-01T10:00:00Z'><TotalTimeSeconds>60</TotalTimeSeconds>"
               b"<DistanceMeters>200</DistanceMeters><TriggerMethod>Distance</TriggerMethod>"
               b"</Lap></Activity></Activities></TrainingCenterDatabase>")
        with ombrix.Track.parse(lap, ombrix.TrackFormat.TCX) as track:
            first = track.lap_figures[0]
            self.assertEqual((track.laps, first.seconds, first.distanceMeters, first.trigger),
                             ([first.begin], 60, 200, 1))

    def test_formats(self):
        with ombrix.Track.of(slope(3), name="Hang") as track:
            for format in (ombrix.TrackFormat.GPX, ombrix.TrackFormat.GEO_JSON):
                with ombrix.Track.parse(track.data(format), format) as read:
                    self.assertEqual((read.name, len(read)), ("Hang", 3))
            with self.assertRaises(ombrix.Error):
                track.data(ombrix.TrackFormat.FIT)

    def test_rows_outlive_their_track(self):
        track = ombrix.Track.of(slope(3))
        fixes = track.fixes
        track.close()
        self.assertEqual(fixes[2].altitude, 2496)
        with self.assertRaises(ValueError):
            track.fixes

    def test_numpy_shares_the_memory(self):
        try:
            import numpy
        except ImportError:
            self.skipTest("numpy is not there")
        track = ombrix.Track.of(slope())
        array = track.fixes.numpy()
        del track
        gc.collect()
        self.assertEqual(array.shape, (600,))
        self.assertEqual(array["altitude"].min(), 2500 - 599 * 2)
        self.assertAlmostEqual(numpy.diff(array["coordinate"]["latitude"]).mean(), -1e-4)
        with self.assertRaises(ValueError):
            array["altitude"][0] = 0

    def test_errors_name_the_file(self):
        with self.assertRaisesRegex(ombrix.Error, "/no/such track.fit"):
            ombrix.Track.read("/no/such track.fit")


class Formatting(NothingLeaks):
    def test_values(self):
        settings.register()
        settings.set_metric_type("kilometers")
        with ombrix.MeasurementFormatter(ombrix.Format.DISTANCE, locale="en_US") as formatter:
            text = formatter.string(ombrix.Measurement(12.3, ombrix.Unit.KILOMETERS))
            self.assertEqual(text, "12.3 KM")
            self.assertEqual(formatter.parse("7"), (7, ombrix.Unit.KILOMETERS))
            with self.assertRaises(ombrix.Error):
                formatter.parse("?")
        with ombrix.TimerFormatter() as timer, ombrix.DurationFormatter() as duration:
            self.assertEqual((timer.string(3725), duration.string(3725)), ("1:02:05", "1H 2M 5S"))
            with self.assertRaises(ValueError):
                timer.string(float("nan"))
        with self.assertRaises(ValueError):
            ombrix.symbol(99)
        self.assertAlmostEqual(ombrix.Measurement(36, ombrix.Unit.KILOMETERS_PER_HOUR)
                               .to(ombrix.Unit.METERS_PER_SECOND).value, 10, places=4)

    def test_observers_are_called_until_they_are_closed(self):
        settings.register()
        seen = []
        with settings.observe("metricType", lambda *change: seen.append(change)):
            while not seen:  # they are followed from a moment after `register`
                settings.set_metric_type("kilometers")
                settings.set_metric_type("british")
            seen.clear()
            settings.set_metric_type("miles")
        settings.set_metric_type("british")
        self.assertEqual(seen, [("metricType", True), ("metricType", False)])


@unittest.skipUnless("OMBRIX_DEVSERVER" in os.environ, "needs the development service")
class Requests(NothingLeaks):
    @classmethod
    def setUpClass(cls):
        cls.service = subprocess.Popen([os.environ["OMBRIX_DEVSERVER"]], stdout=subprocess.PIPE,
                                       text=True)
        url = cls.service.stdout.readline().strip()
        requests.use_servers(url, url, url, requests.Environment.DEVELOPMENT)

    @classmethod
    def tearDownClass(cls):
        cls.service.terminate()
        cls.service.wait()
        cls.service.stdout.close()

    def test_answers_and_failures(self):
        async def several():
            return await asyncio.gather(requests.request("resorts"),
                                        requests.request("echo", "POST", b"down"),
                                        requests.request("nothing/here"),
                                        requests.request("resorts", "FETCH"),
                                        return_exceptions=True)

        resorts, echo, nothing, malformed = asyncio.run(several())
        with tempfile.TemporaryDirectory() as folder:
            file = pathlib.Path(folder, "fetched.json")
            fetched = asyncio.run(requests.download("resorts", file))
            self.assertEqual((fetched.code, file.read_bytes()), (200, resorts.body))
            self.assertIn(b"Weisshorn", asyncio.run(requests.upload(file, "echo")).body)
            with self.assertRaises(ombrix.Error):
                asyncio.run(requests.upload(file.with_name("none"), "echo"))
        self.assertEqual(resorts.code, 200)
        self.assertIn(b"down", echo.body)
        self.assertEqual((nothing.http_status, nothing.http_case), (404, "resourceNotFoundError"))
        self.assertEqual(malformed.http_case, "badRequestError")

    def test_a_cancelled_wait_cancels_its_request(self):
        async def impatient():
            task = asyncio.create_task(requests.request("slow?ms=600000"))
            await asyncio.sleep(0)
            task.cancel()
            with self.assertRaises(asyncio.CancelledError):
                await task
            self.assertFalse(requests._waiting)
            self.assertEqual((await requests.request("resorts")).code, 200)

        asyncio.run(impatient())


if __name__ == "__main__":
    unittest.main()
