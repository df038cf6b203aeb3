"""Bayer demosaic of 16-bit numpy frames into 48-bit colour images.

    >>> import numpy, oqa_demosaic
    >>> mosaic = numpy.zeros((1080, 1920), numpy.uint16)
    >>> oqa_demosaic.demosaic(mosaic, "RGGB").shape
    (1080, 1920, 3)

demosaic() runs the library's bit-exact bilinear interpolation; every
instruction-set level gives the same bytes. levels() lists the levels this
process can use. The library is initialised when this package is imported and
terminated when the interpreter exits.
"""


class Error(RuntimeError):
    """A result code other than success from the demosaic library.

    ``code`` is the library's result code (a ``QN_DEMOSAIC_ERROR`` value of
    the C header).
    """

    def __init__(self, message, code):
        super().__init__(message)
        self.code = code

    def __reduce__(self):
        # Keeps the code when the error is pickled, e.g. from a Dask worker.
        return (type(self), (str(self), self.code))


# Defined before the extension loads, because the extension raises Error.
from ._native import demosaic, levels  # noqa: E402

__all__ = ["Error", "demosaic", "levels"]
