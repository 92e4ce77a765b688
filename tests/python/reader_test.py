import asyncio
import concurrent.futures
import os
import threading

import numpy

import fsys
from python_case import PythonCase, main

SIZE = 5_000_000


class Reading(PythonCase):
    def setUp(self):
        super().setUp()
        self.session, _ = self.open_with_location()
        self.data = self.noise(SIZE)
        self.cookie, self.file = self.record(self.session, self.data)
        self.reader = self.session.reader(self.cookie)

    def test_gives_bytes_at_any_place(self):
        for offset, size in ((0, 10), (4095, 4099), (1_048_570, 1_000_000), (SIZE - 3, 3), (17, 0)):
            self.assertEqual(self.reader.read(offset, size), self.data[offset:offset + size])
        self.assertEqual(self.reader.read(), self.data)
        self.assertEqual(self.reader.read(SIZE - 5), self.data[-5:])
        self.assertEqual((self.reader.size, self.reader.path, self.reader.target), (SIZE, self.file, self.file))

    def test_ends_where_the_file_ends(self):
        self.assertEqual(self.reader.read(SIZE - 3, 100), self.data[-3:])
        self.assertEqual(self.reader.read(SIZE, 100), b"")
        self.assertEqual(self.reader.read(SIZE + 1000), b"")
        into = bytearray(b"x" * 10)
        self.assertEqual((self.reader.readinto(into, SIZE - 4), into), (4, self.data[-4:] + b"x" * 6))
        self.assertEqual(self.reader.readinto(into, SIZE), 0)

    def test_fills_numpy_arrays_of_any_type(self):
        picture = numpy.zeros((100, 120, 3), dtype=numpy.uint8)
        self.assertEqual(self.reader.readinto(picture, 1000), picture.nbytes)
        self.assertEqual(picture.tobytes(), self.data[1000:1000 + picture.nbytes])
        samples = numpy.zeros(1000, dtype="<i4")
        self.assertEqual(self.reader.readinto(samples, 8), 4000)
        self.assertTrue((samples == numpy.frombuffer(self.data, "<i4", 1000, 8)).all())
        self.reader.readinto(memoryview(picture.reshape(-1))[10:20], 0)
        self.assertEqual(picture.reshape(-1)[10:20].tobytes(), self.data[:10])

    def test_refuses_memory_that_it_cannot_fill(self):
        for into in (b"constant", numpy.zeros((10, 10), numpy.uint8)[:, ::2], "text", 5,
                     numpy.frombuffer(b"constant", numpy.uint8)):
            with self.assertRaises((BufferError, TypeError, ValueError)):
                self.reader.readinto(into)
        for call in (lambda: self.reader.read(-1), lambda: self.reader.readinto(bytearray(1), -1),
                     lambda: self.reader.read_async(-1, 1)):
            with self.assertRaises(ValueError):
                call()

    def test_futures_give_views_that_outlive_the_session(self):
        futures = [self.reader.read_async(at, 100_000) for at in range(0, SIZE, 100_000)]
        views = [future.result(60) for future in futures]
        self.assertEqual(b"".join(views), self.data)
        self.assertTrue(views[0].readonly)
        array = numpy.frombuffer(views[3], numpy.uint8)
        self.session.close()
        self.assertEqual(array.tobytes(), self.data[300_000:400_000])
        self.assertEqual(b"".join(views), self.data)

    def test_futures_fill_memory(self):
        frames = numpy.zeros((20, 250_000), numpy.uint8)
        futures = [self.reader.readinto_async(frame, number * 250_000) for number, frame in enumerate(frames)]
        self.assertEqual([future.result(60) for future in futures], [250_000] * 20)
        self.assertEqual(frames.tobytes(), self.data)

    def test_a_future_behind_the_end_has_nothing(self):
        self.assertEqual(self.reader.read_async(SIZE + 10, 5).result(60), b"")
        self.assertEqual(self.reader.readinto_async(bytearray(5), SIZE).result(60), 0)
        self.assertEqual(bytes(self.reader.read_async(SIZE - 1, 5).result(60)), self.data[-1:])

    def test_a_future_raises_what_went_wrong(self):
        with self.assertRaises(fsys.InvalidArgument):
            self.reader.read_async(0, 1 << 31).result(60)
        os.remove(self.file)
        with self.assertRaises(fsys.Changed):
            self.reader.read_async(0, 1000).result(60)
        with self.assertRaises(fsys.Changed) as raised:
            self.reader.read(0, 1000)
        self.assertEqual(raised.exception.code, "fileVanished")

    def test_the_memory_of_a_future_is_held_while_it_reads_and_free_afterwards(self):
        into = bytearray(1000)
        self.reader.readinto_async(into).result(60)
        into.extend(b"more")  # would raise BufferError

    def test_callbacks_of_futures_may_do_anything(self):
        done = threading.Event()
        seen = []

        def hear(future):
            seen.append(bytes(future.result()))
            if len(seen) < 20:
                self.reader.read_async(len(seen) * 100, 100).add_done_callback(hear)
                seen.append(self.reader.read(0, 10))
            else:
                self.reader.close()
                done.set()

        self.reader.read_async(0, 100).add_done_callback(hear)
        self.assertTrue(done.wait(60))
        self.assertFalse(self.reader.is_open)

    def test_a_callback_may_end_the_session(self):
        done = threading.Event()

        def hear(_future):
            self.session.close()
            done.set()

        self.reader.read_async(0, 100).add_done_callback(hear)
        self.assertTrue(done.wait(60))
        self.assertFalse(self.session.is_open)

    def test_asyncio_awaits_them(self):
        async def read():
            futures = [asyncio.wrap_future(self.reader.read_async(at, 10)) for at in (0, 100)]
            return [bytes(data) for data in await asyncio.gather(*futures)]

        self.assertEqual(asyncio.run(read()), [self.data[:10], self.data[100:110]])

    def test_every_future_is_satisfied_when_the_reader_closes(self):
        futures = [self.reader.read_async(at % SIZE, 50_000) for at in range(0, 400 * 50_000, 50_000)]
        for future in futures[::2]:
            self.assertEqual(future.cancel(), future.cancelled())
        self.reader.close()
        for future in futures:
            self.assertTrue(future.done())
            if not future.cancelled():
                self.assertEqual(future.exception(), None)

    def test_a_cancelled_future_says_so(self):
        cancelled = 0
        for _ in range(50):
            futures = [self.reader.read_async(at, 200_000) for at in range(0, SIZE, 200_000)]
            for future in reversed(futures):
                future.cancel()
            for future in futures:
                try:
                    future.result(60)
                except concurrent.futures.CancelledError:
                    cancelled += 1
        self.assertEqual(self.reader.read(0, 10), self.data[:10])
        self.reader.close()
        self.assertRaises(fsys.NotOpen, self.reader.read_async, 0, 1)

    def test_other_threads_of_python_run_while_one_reads(self):
        # All read at once into memory of their own; a lock that is held across a read would show as a hang.
        barrier = threading.Barrier(8)
        wrong = []

        def read(number):
            barrier.wait()
            for at in range(number * 1000, SIZE, 500_000):
                if self.reader.read(at, 10_000) != self.data[at:at + 10_000]:
                    wrong.append(at)

        threads = [threading.Thread(target=read, args=(number,)) for number in range(8)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(60)
        self.assertEqual(wrong, [])

    def test_is_a_file_for_those_who_want_one(self):
        with self.reader.file() as file:
            self.assertEqual(file.read(10), self.data[:10])
            file.seek(-5, os.SEEK_END)
            self.assertEqual((file.read(), file.read()), (self.data[-5:], b""))
            file.seek(1000)
            file.seek(5, os.SEEK_CUR)
            self.assertEqual((file.tell(), file.read(3)), (1005, self.data[1005:1008]))
            self.assertRaises(ValueError, file.seek, -1)
        self.assertFalse(self.reader.is_open)

    def test_reading_in_order_may_read_ahead(self):
        self.reader.read_ahead(1 << 20)
        self.reader.stall_limit(30)
        pieces = [self.reader.read(at, 50_000) for at in range(0, SIZE, 50_000)]
        self.assertEqual(b"".join(pieces), self.data)
        counters = self.reader.counters()
        self.assertEqual((counters["requests"], counters["bytes"]), (100, SIZE))
        self.assertGreater(counters["cache_answers"], 0)

    def test_closes_with_its_block(self):
        with self.session.file_reader(self.file) as reader:
            self.assertIn(self.file, repr(reader))
        self.assertIn("closed", repr(reader))
        self.assertRaises(fsys.NotOpen, reader.read)
        reader.close()

    def test_a_folder_is_no_file(self):
        self.assertRaises(fsys.NotFound, self.session.file_reader, self.path("a"))


if __name__ == "__main__":
    main()
