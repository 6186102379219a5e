"""The backend through which Matplotlib shows figures to clients."""

import base64
import io
import itertools
import sys
import warnings

import _numora_host as _host
from matplotlib._pylab_helpers import Gcf
from matplotlib.backend_bases import FigureManagerBase
from matplotlib.backends.backend_agg import FigureCanvasAgg

from . import _cells, _guest
from ._interrupts import held

_of_others = {}  # figures that were open before the cell that runs, by number
_LONGEST = 2_800_000  # bytes of pictures in one event, which become a third more in base64


class FigureManager(FigureManagerBase):
    def show(self):
        """Raises the event of this figure; with the guest it is shown in the formats that were chosen there."""
        guest = _guest.of_client()
        if guest:
            guest.display(self.canvas.figure)
            return
        if not _host.hears("figure"):
            warnings.warn("No client shows figures.", stacklevel=4)
            return
        figure = self.canvas.figure
        is_drawn = not _host.has_capability("notebook")  # which shows the picture only
        picture, svg = png(figure), _picture(figure, "svg") if is_drawn else b""
        width, height = self.canvas.get_width_height()
        _host.raise_event("figure", {
            "number": self.num, "title": _title(self), "width": width, "height": height,
            "png": base64.b64encode(picture).decode(),
            "svg": base64.b64encode(svg).decode() if svg and len(picture) + len(svg) <= _LONGEST else None,
            "text": repr(figure),
        })

    @classmethod
    def pyplot_show(cls, *, block=None):
        show()


class FigureCanvas(FigureCanvasAgg):
    manager_class = FigureManager


def show(*_args, **_kwargs):
    """Shows all figures, which are done with then."""
    _close(Gcf.get_all_fig_managers(), True)


def _close(managers, is_shown):
    problem = None
    try:
        for manager in managers:
            try:
                if is_shown:
                    manager.show()
            except Exception as error:
                problem = problem or error
            Gcf.destroy(manager)
    finally:
        with held():
            for manager in managers:
                Gcf.destroy(manager)  # which an interrupt has left
    if problem:
        raise problem


def begin_cell():
    """Sets the figures of others aside, which a cell would else draw into, show and close."""
    with held():
        for number, manager in list(Gcf.figs.items()):
            if isinstance(manager, FigureManager):
                _of_others[number] = Gcf.figs.pop(number)


def end_cell():
    try:
        show_left()
    finally:
        with held():
            for number in _of_others.keys() & Gcf.figs.keys():  # a figure of another backend, which stays
                manager = Gcf.figs.pop(number)
                manager.num = next(n for n in itertools.count(1) if n not in Gcf.figs and n not in _of_others)
                manager.canvas.figure.number = manager.num
                Gcf.figs[manager.num] = manager
            Gcf.figs.update(_of_others)
            _of_others.clear()


def show_left():
    """Shows the figures that a cell has left open, or closes them where nobody sees them."""
    left = [manager for manager in Gcf.get_all_fig_managers() if isinstance(manager, FigureManager)]
    _close(left, _host.hears("figure"))


def png(figure):
    """A picture that has room in an event, with fewer pixels if need be. What reaches beyond the figure may have as many
    as before, and is left out then.
    """
    for edges in dict.fromkeys((_edges(), None)):
        dpi = figure.dpi
        for _ in range(6):
            picture = _picture(figure, "png", dpi, edges)
            if len(picture) <= _LONGEST:
                return picture
            dpi *= min(0.7, (_LONGEST / len(picture)) ** 0.5)
    raise ValueError("the picture of a figure must have at most %d bytes, also with fewer pixels" % _LONGEST)


def _edges():
    return "tight" if _host.has_capability("notebook") else None  # as everywhere in notebooks


def _picture(figure, kind, dpi="figure", edges=None):
    file = io.BytesIO()
    figure.savefig(file, format=kind, dpi=dpi, bbox_inches=edges)
    return file.getvalue()


def _title(manager):
    figure = manager.canvas.figure
    titles = [figure._suptitle.get_text() if figure._suptitle else ""] + [axes.get_title() for axes in figure.axes]
    return next(filter(None, titles), figure.get_label() or "Figure %d" % manager.num)


if _guest.made():
    _guest.made().prepare_figures()
if _cells.figures is None:
    _cells.figures = sys.modules[__name__]
sys.modules[__name__] = _cells.figures  # code has taken it out of there, but not its figures
