"""Picture sheets: the same part of a picture before and after, at 100 %."""

import cv2
import numpy as np

_CELL = 320


def crop_of_interest(picture):
    """Slices of a part around the brightest compact thing, at most 320 pixels a side."""
    grey = picture.mean(axis=2)
    smooth = cv2.GaussianBlur(grey, (0, 0), 2.0) - cv2.GaussianBlur(grey, (0, 0), 12.0)
    return crop_around_largest(smooth)


def crop_around_largest(plane):
    """Slices of a part around the largest value of a plane, at most 320 pixels a side."""
    row, column = np.unravel_index(int(plane.argmax()), plane.shape)
    height, width = plane.shape

    def span(centre, size):
        side = min(_CELL, size)
        low = int(np.clip(centre - side // 2, 0, size - side))
        return slice(low, low + side)

    return span(row, height), span(column, width)


def write_sheet(path, titles, rows):
    """One line for each row, which is a list of pictures of at most 320 pixels a side."""
    lines = [np.hstack([_labelled(np.zeros((24, _CELL, 3), np.float32), t) for t in titles])]
    for row in rows:
        lines.append(np.hstack([_framed(picture) for picture in row]))
    sheet = np.round(np.clip(np.vstack(lines), 0.0, 1.0) * 255.0).astype(np.uint8)
    if not cv2.imwrite(str(path), sheet[:, :, ::-1]):
        raise OSError(f"{path} cannot be written.")


def _labelled(cell, text):
    cell = np.ascontiguousarray(cell)
    cv2.putText(cell, text, (6, 17), cv2.FONT_HERSHEY_SIMPLEX, 0.5, (1.0, 1.0, 1.0), 1, cv2.LINE_AA)
    return cell


def _framed(picture):
    cell = np.full((_CELL, _CELL, 3), 0.5, np.float32)
    cell[: picture.shape[0], : picture.shape[1]] = picture[:_CELL, :_CELL]
    cell[-2:], cell[:, -2:] = 0.5, 0.5
    return cell
