# Listing a folder, and the folder monitor from a file's creation to the callback.
sm_add_benchmark(NAME filebrowser_benchmark
                 SOURCES filebrowser_benchmark.cpp
                 LIBS filebrowser filefoldermonitor filetestsupport)
