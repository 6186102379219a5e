"""The backend through which Matplotlib shows figures to clients."""

import base64
import io
import warnings

import _numora_host as _host
from matplotlib._pylab_helpers import Gcf
from matplotlib.backend_bases import FigureManagerBase
from matplotlib.backends.backend_agg import FigureCanvasAgg

_LONGEST_SVG = 2 << 20  # bytes; a drawing with very many parts is sent as a picture only


class FigureManager(FigureManagerBase):
    def show(self):
        """Raises the event of this figure."""
        if not _host.hears("figure"):
            warnings.warn("No client shows figures.", stacklevel=3)
            return
        figure = self.canvas.figure
        png, svg = _picture(figure, "png"), _picture(figure, "svg")
        width, height = self.canvas.get_width_height()
        _host.post_event("figure", {
            "number": self.num, "title": _title(self), "width": width, "height": height,
            "png": base64.b64encode(png).decode(),
            "svg": base64.b64encode(svg).decode() if len(svg) <= _LONGEST_SVG else None,
        })

    @classmethod
    def pyplot_show(cls, *, block=None):
        show()


class FigureCanvas(FigureCanvasAgg):
    manager_class = FigureManager


def show(*_args, **_kwargs):
    """Shows all figures, which are done with then."""
    try:
        for manager in Gcf.get_all_fig_managers():
            manager.show()
    finally:
        Gcf.destroy_all()


def _picture(figure, kind):
    file = io.BytesIO()
    figure.savefig(file, format=kind, dpi="figure")
    return file.getvalue()


def _title(manager):
    figure = manager.canvas.figure
    titles = [figure._suptitle.get_text() if figure._suptitle else ""] + [axes.get_title() for axes in figure.axes]
    return next(filter(None, titles), manager.get_window_title() or "Figure %d" % manager.num)
