"""The scenes where a way of taking stars out harms most of what is no star."""

import cv2

from .computed import other_error
from .sheet import crop_around_largest


class WorstScenes:
    """Keeps the pictures of the count scenes with the largest sum of squared differences."""

    def __init__(self, count):
        self._count = count
        self._kept = []  # error, number, pictures; the worst first

    def add(self, number, scene, results):
        """results are those of each way; the first one's decides."""
        error = other_error(scene, results[0])
        part = crop_around_largest(cv2.GaussianBlur(error, (0, 0), 8.0))
        pictures = [picture[part].copy() for picture in (scene.picture, scene.truth, *results)]
        self._kept.append((float(error.sum()), number, pictures))
        self._kept.sort(key=lambda entry: (-entry[0], entry[1]))
        del self._kept[self._count :]

    def rows(self):
        """The part of each scene that is most wrong: before, truth and the results."""
        return [pictures for _, _, pictures in self._kept]

    def numbers(self):
        return [number for _, number, _ in self._kept]
