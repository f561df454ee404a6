# Runs the Python binding's tests (python/tests, pytest) against the shared
# objects of BINARY_DIR, then, when the build installs the package, imports
# it from a scratch install of the whole tree with no hint where the
# libraries are.
#   cmake -DSOURCE_DIR=<repo> -DBINARY_DIR=<build> -P pytest_check.cmake
if(NOT SOURCE_DIR OR NOT BINARY_DIR)
  message(FATAL_ERROR "pytest_check: SOURCE_DIR and BINARY_DIR are required")
endif()

# A sanitizer build's libraries can only be loaded into a process that
# starts with the sanitizer runtimes, so the interpreter gets them preloaded
# (the compiler's own libasan and libubsan); the interpreter's deliberate
# leaks at exit are not reported.  Without those runtimes the check passes
# without running, and says so.
set(preload "")
file(STRINGS ${BINARY_DIR}/CMakeCache.txt sanitize REGEX "^LUMR_SANITIZE:BOOL=")
if(sanitize MATCHES "=(ON|1|TRUE|YES)$")
  file(STRINGS ${BINARY_DIR}/CMakeCache.txt cxx REGEX "^CMAKE_CXX_COMPILER:[A-Z]+=")
  string(REGEX REPLACE "^[^=]*=" "" cxx "${cxx}")
  foreach(rt asan ubsan)
    execute_process(COMMAND ${cxx} -print-file-name=lib${rt}.so
                    OUTPUT_VARIABLE so OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT IS_ABSOLUTE "${so}" OR NOT EXISTS "${so}")
      message(STATUS "pytest_check: skipped, no lib${rt}.so to preload into python3 for the "
                     "sanitizer build")
      return()
    endif()
    string(APPEND preload " ${so}")
  endforeach()
  string(STRIP "${preload}" preload)
  set(preload "LD_PRELOAD=${preload}" ASAN_OPTIONS=detect_leaks=0)
endif()

set(python /usr/bin/python3)
if(NOT EXISTS ${python})
  message(FATAL_ERROR "pytest_check: ${python} is missing (Debian python3, python3-numpy, "
                      "python3-scipy, python3-pytest)")
endif()

execute_process(
  COMMAND ${CMAKE_COMMAND} -E env LUMR_LIBRARY_DIR=${BINARY_DIR} PYTHONDONTWRITEBYTECODE=1
          ${preload} ${python} -m pytest -q -p no:cacheprovider ${SOURCE_DIR}/python/tests
  WORKING_DIRECTORY ${BINARY_DIR}
  RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "pytest_check: python/tests failed (exit ${rc})")
endif()

if(EXISTS ${BINARY_DIR}/python/cmake_install.cmake)
  set(prefix ${BINARY_DIR}/python-install-check)
  file(REMOVE_RECURSE ${prefix})
  execute_process(COMMAND ${CMAKE_COMMAND} --install ${BINARY_DIR} --prefix ${prefix}
                  RESULT_VARIABLE rc OUTPUT_QUIET)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "pytest_check: cmake --install into ${prefix} failed")
  endif()
  file(GLOB_RECURSE init ${prefix}/*__init__.py)
  list(FILTER init INCLUDE REGEX "/lumr/__init__.py$")
  list(LENGTH init n)
  if(NOT n EQUAL 1)
    message(FATAL_ERROR "pytest_check: the install holds ${n} lumr packages")
  endif()
  get_filename_component(pkg ${init} DIRECTORY)
  get_filename_component(site ${pkg} DIRECTORY)
  execute_process(
    COMMAND ${CMAKE_COMMAND} -E env --unset=LUMR_LIBRARY_DIR PYTHONPATH=${site}
            PYTHONDONTWRITEBYTECODE=1 ${preload} ${python} -c
            "import lumr, numpy as n; p = lumr.library_path(); assert p.startswith('${prefix}'), p; v = n.arange(60, dtype=n.int16).reshape(3, 4, 5); assert (lumr.filter(v, n.ones((1, 1, 1), int)) == v).all(); print(p)"
    WORKING_DIRECTORY /
    RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "pytest_check: the installed package does not import and run")
  endif()
else()
  message(STATUS "pytest_check: the build does not install the Python package "
                 "(no add_subdirectory(python)); installed-tree import not checked")
endif()
