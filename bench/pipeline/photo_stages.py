# Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
"""Where the time of a photo goes, from GStreamer's own debug log of the host."""

import re

# What the host has to log for it: GST_DEBUG; the messages' form is that of GStreamer 1.22.
DEBUG = 'GST_SCHEDULING:6,GST_STATES:4'

BEGIN = re.compile(r'<picture-src> current NULL pending VOID_PENDING, desired next READY')
CONVERT = re.compile(r"<front-picture-pipeline> child '(videoconvert\d+)'")
# The moments at which stages end, in this order. Probes of a buffer are looked through just when it gets
# to a pad, and the chain function is called once they have let it pass.
MOMENTS = [
    ('camera', None),  # the first frame reaches a converter
    ('picture', re.compile(r'<picture-jpegfilter:sink> calling chainfunction')),
    ('encoding', re.compile(r'<picture-jpegmux:sink> hook \d+ .* does not match 00001012')),
    ('thumbnail and tags', re.compile(r'<picture-jpegmux:sink> calling chainfunction')),
    ('muxing', re.compile(r'<picture-jpegmux:src> hook \d+ .* does not match 00001012')),
    ('embedding', re.compile(r'<picture-jpegsink:sink> calling chainfunction')),
    ('writing', re.compile(r'<picture-jpegsink:sink> called chainfunction')),
]


def _time_ms(line):
    hours, minutes, seconds = line[:17].split(':')
    return 1e3 * (3600 * int(hours) + 60 * int(minutes) + float(seconds))


def read(path):
    """A dictionary of stages, milliseconds, for each photo of the log."""
    photos = []
    converts = set()
    photo, last_ms, stage = None, 0, 0
    with open(path, errors='replace') as file:
        for line in file:
            if found := CONVERT.search(line):
                converts.add(f'<{found[1]}:sink> calling chainfunction')
            if BEGIN.search(line):
                photo, last_ms, stage = {}, _time_ms(line), 0
            if photo is None:
                continue
            name, pattern = MOMENTS[stage]
            if pattern.search(line) if pattern else any(c in line for c in converts):
                now_ms = _time_ms(line)
                photo[name], last_ms, stage = now_ms - last_ms, now_ms, stage + 1
                if stage == len(MOMENTS):
                    photos.append(photo)
                    photo = None
    return photos
