# Every fuzz target: its source and the libraries it needs. The fuzz tree
# builds each as a libFuzzer program; bench/ builds each as a plain replay
# program that measures memory over the corpus.
fd_fuzz_target(text_fuzz SOURCES text_fuzz.cpp LIBS fd_support)
fd_fuzz_target(idtags_fuzz SOURCES idtags_fuzz.cpp LIBS fd_tags)
fd_fuzz_target(wavestream_fuzz SOURCES wavestream_fuzz.cpp LIBS fd_decoder)
fd_fuzz_target(stderrparse_fuzz SOURCES stderrparse_fuzz.cpp LIBS fd_decoder)
fd_fuzz_target(ape_fuzz SOURCES ape_fuzz.cpp LIBS fd_tags)
fd_fuzz_target(id3v1_fuzz SOURCES id3v1_fuzz.cpp LIBS fd_tags)
fd_fuzz_target(removeart_fuzz SOURCES removeart_fuzz.cpp LIBS fd_tags)
fd_fuzz_target(matroska_read_fuzz SOURCES matroska_read_fuzz.cpp LIBS fd_decoder fd_tags)
fd_fuzz_target(imagedetect_fuzz SOURCES imagedetect_fuzz.cpp LIBS fd_image)
fd_fuzz_target(matroska_write_fuzz SOURCES matroska_write_fuzz.cpp LIBS fd_decoder fd_tags)
fd_fuzz_target(id3v2_fuzz SOURCES id3v2_fuzz.cpp LIBS fd_tags)
fd_fuzz_target(id3v2_write_fuzz SOURCES id3v2_write_fuzz.cpp LIBS fd_tags)
