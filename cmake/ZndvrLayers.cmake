# The layers of zndvr: which folders the files of a folder may include besides their
# own. Includes run only downward, so a lower layer never learns of a higher one and
# the driver stand-in or a subsystem can be replaced without touching the others.
# The zndvr_layers test (tests/layers/CheckLayers.cmake) holds every file of the tree
# to this table, and a folder without a row fails it.
#
# Words in angle brackets name sets of headers: <public> the installed headers
# (cmake/ZndvrPublicHeaders.cmake), <tested> every header of the library folder that a
# test folder is named after, <library> every header of the library. Benchmarks and
# fuzz targets sit in flat folders, so the folder they measure is not in their path.
set(ZNDVR_LAYERS
  "platform       :"
  "vocabulary     : platform"
  "driver         : platform vocabulary"
  "driver/virtual : platform vocabulary driver"
  "codec          : platform vocabulary"
  "sound          : platform vocabulary driver"
  "recording      : platform vocabulary codec sound"
  "storage        : platform vocabulary codec sound recording"
  "playback       : platform vocabulary codec sound recording"
  "capture        : platform vocabulary driver codec sound recording"
  "tools          : <public>"
  "tests          : <public> <tested>"
  "bench          : <library>"
  "fuzz           : <library>"
)
