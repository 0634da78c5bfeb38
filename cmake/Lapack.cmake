# LAPACK and BLAS as one private target, voalgo_lapack.
#   reference  the reference implementation, statically. Results then do not depend on which vendor's library the system
#              loads, and hosts that bring a LAPACK of their own never meet ours: its symbols stay out of the export table.
#   system     whatever find_package(LAPACK) answers (see BLA_VENDOR); last digits may differ from machine to machine.
if(UNIX AND NOT APPLE)
    set(VOALGO_LAPACK reference CACHE STRING "LAPACK implementation: reference (static) or system")
else()
    set(VOALGO_LAPACK system CACHE STRING "LAPACK implementation: reference (static) or system")
endif()
set_property(CACHE VOALGO_LAPACK PROPERTY STRINGS reference system)

add_library(voalgo_lapack INTERFACE)

if(VOALGO_LAPACK STREQUAL "system")
    find_package(LAPACK REQUIRED)
    target_link_libraries(voalgo_lapack INTERFACE LAPACK::LAPACK)
    return()
elseif(NOT VOALGO_LAPACK STREQUAL "reference")
    message(FATAL_ERROR "VOALGO_LAPACK is '${VOALGO_LAPACK}', but must be 'reference' or 'system'")
endif()

# liblapack_pic.a is the reference's own; a plain libblas.a may be another vendor's, so its folder is looked at first.
find_library(VOALGO_LAPACK_ARCHIVE liblapack_pic.a)
find_library(VOALGO_BLAS_ARCHIVE libblas.a PATH_SUFFIXES blas)
if(NOT VOALGO_LAPACK_ARCHIVE OR NOT VOALGO_BLAS_ARCHIVE)
    message(FATAL_ERROR "The reference LAPACK as position-independent archives was not found (Debian: liblapack-dev, "
        "libblas-dev). -DVOALGO_LAPACK=system takes the LAPACK that the system has.")
endif()
set_source_files_properties(numerics/lapack.cpp PROPERTIES COMPILE_DEFINITIONS VOALGO_LAPACK_REFERENCE)
target_link_libraries(voalgo_lapack INTERFACE ${VOALGO_LAPACK_ARCHIVE} ${VOALGO_BLAS_ARCHIVE})
target_link_options(voalgo_lapack INTERFACE "LINKER:--exclude-libs,liblapack_pic.a:libblas.a")
