# The "docs" target: API documentation of the public headers (include/) with
# Doxygen, into <build>/docs/html. The headers' plain comments are read as
# documentation through cmake/doxygen-filter.sed.
find_package(Doxygen)
if(NOT DOXYGEN_FOUND)
  message(STATUS "Doxygen not found: no docs target")
  return()
endif()
set(DOXYGEN_PROJECT_NAME "corvane-net")
set(DOXYGEN_PROJECT_BRIEF "Network support library: resolution, host addressing, URIs and SIP URLs")
set(DOXYGEN_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/docs)
set(DOXYGEN_STRIP_FROM_PATH ${PROJECT_SOURCE_DIR}/include)
set(DOXYGEN_STRIP_FROM_INC_PATH ${PROJECT_SOURCE_DIR}/include)
set(DOXYGEN_FULL_PATH_NAMES YES)
set(DOXYGEN_FILE_PATTERNS *.h)
set(DOXYGEN_INPUT_FILTER "sed -f ${PROJECT_SOURCE_DIR}/cmake/doxygen-filter.sed")
set(DOXYGEN_EXTRACT_ALL YES)
set(DOXYGEN_EXTRACT_PRIVATE YES)
set(DOXYGEN_EXTRACT_STATIC YES)
set(DOXYGEN_JAVADOC_AUTOBRIEF YES)
set(DOXYGEN_MARKDOWN_SUPPORT YES)
set(DOXYGEN_GENERATE_LATEX NO)
set(DOXYGEN_GENERATE_TREEVIEW YES)
set(DOXYGEN_QUIET YES)
set(DOXYGEN_WARN_NO_PARAMDOC NO)
doxygen_add_docs(docs ${PROJECT_SOURCE_DIR}/include COMMENT "API documentation into ${PROJECT_BINARY_DIR}/docs/html")

# A warning about a public header (a broken command, a parameter that is not
# there) fails the test suite; the check writes to a folder of its own.
if(CORVANE_TESTS)
  add_test(NAME docs.PublicHeadersDocumentWithoutWarnings
           COMMAND sh -c "{ cat Doxyfile.docs; echo WARN_AS_ERROR=FAIL_ON_WARNINGS; echo OUTPUT_DIRECTORY=docs-check; } | '${DOXYGEN_EXECUTABLE}' -"
           WORKING_DIRECTORY ${PROJECT_BINARY_DIR})
endif()
