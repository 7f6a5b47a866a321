# Third-party dependencies, all from Debian 12 packages (scripts/setup installs
# them). Each one is here because it is the tool made for the job:
#   fmt            - formatting of messages and reports
#   CLI11          - the orvo command line
#   OpenImageIO    - every image read and write
#   OpenColorIO    - colour management
#   OSMesa         - Mesa's offscreen software OpenGL: the viewport draws with
#                    real GL on machines with no display or GPU, CI included
#   embree 3       - ray intersection in the reference renderer
#   tinyobjloader  - Wavefront OBJ meshes
#   pybind11, Python 3 - the embedded interpreter that runs the scripted
#                    services (the file texture's name resolver), and the
#                    `import orvo` extension module
#   Threads        - render threads
#   GTest          - unit tests
#   benchmark      - Google Benchmark programs in bench/
#   stb, libnoise  - peers of the noise benchmark (bench/noise.cpp only)
# Some Debian package files name include folders that are not there:
# OpenImageIO lists /usr/include/opencv4 without depending on OpenCV, and
# OpenColorIO, installed into /usr/share/cmake, works out its prefix as /.
# The headers themselves sit in /usr/include, so the missing folders are
# simply dropped.
function(orvo_drop_missing_include_dirs target)
    foreach(prop INTERFACE_INCLUDE_DIRECTORIES INTERFACE_SYSTEM_INCLUDE_DIRECTORIES)
        get_target_property(dirs ${target} ${prop})
        if(dirs)
            set(kept)
            foreach(dir IN LISTS dirs)
                if(EXISTS "${dir}")
                    list(APPEND kept "${dir}")
                endif()
            endforeach()
            set_target_properties(${target} PROPERTIES ${prop} "${kept}")
        endif()
    endforeach()
endfunction()

find_package(Threads REQUIRED)
find_package(fmt REQUIRED)
find_package(CLI11 REQUIRED)
find_package(OpenImageIO REQUIRED)
# Debian installs the OpenColorIO package file straight into /usr/share/cmake.
find_package(OpenColorIO REQUIRED HINTS /usr/share/cmake)
# Mesa's offscreen GL carries its own GL entry points: the host links it
# alone, not libGL, so that every gl* call goes to the offscreen context.
find_path(ORVO_OSMESA_INCLUDE_DIR GL/osmesa.h REQUIRED)
find_library(ORVO_OSMESA_LIBRARY OSMesa REQUIRED)
orvo_drop_missing_include_dirs(OpenImageIO::OpenImageIO)
orvo_drop_missing_include_dirs(OpenColorIO::OpenColorIO)
find_package(embree 3 REQUIRED)
find_package(tinyobjloader REQUIRED)
# Vector kernels pick their instruction set when they first run.
find_package(hwy REQUIRED)
# Debian's Python, not one a version manager put first on PATH: the
# libraries link against its libpython.
if(NOT DEFINED Python3_ROOT_DIR AND EXISTS /usr/bin/python3)
    set(Python3_ROOT_DIR /usr)
endif()
set(Python3_FIND_STRATEGY LOCATION)
find_package(Python3 REQUIRED COMPONENTS Interpreter Development.Embed Development.Module)
find_package(pybind11 CONFIG REQUIRED)

if(ORVO_TESTS)
    find_package(GTest REQUIRED)
endif()
if(ORVO_BENCH)
    find_package(benchmark REQUIRED)
    # The peers of bench/noise.cpp, which times our noise beside two widely
    # used noise libraries: stb_perlin.h from libstb-dev and libnoise from
    # libnoise-dev. Benchmarks only; the render model uses neither.
    find_path(ORVO_STB_INCLUDE_DIR stb/stb_perlin.h REQUIRED)
    find_library(ORVO_LIBNOISE_LIBRARY noise REQUIRED)
endif()
