# Run by CTest (test CorpusFolderPresent) with the tests' environment.
# Fails when MELD_CORPUS_DIR did not reach the tests; prints a banner and is
# reported as skipped when the folder it names holds no corpus.
if("$ENV{MELD_CORPUS_DIR}" STREQUAL "")
  message(FATAL_ERROR "MELD_CORPUS_DIR is not in the tests' environment: "
                      "the corpus tests would look in the default place only")
endif()
set(dir "$ENV{MELD_CORPUS_DIR}")
if(NOT EXISTS "${dir}/MANIFEST.tsv")
  message("\n"
    "************************************************************\n"
    "*** CORPUS NOT FOUND: ${dir}\n"
    "*** has no MANIFEST.tsv. Every test that reads real XT files\n"
    "*** is skipped. Configure with -DMELD_CORPUS_DIR=<folder>.\n"
    "************************************************************\n")
  return()
endif()
message("corpus folder: ${dir}")
