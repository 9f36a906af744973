# The library carries two code paths built from one source:
#   u8  SSSE3, tuned for the out-of-order cores that introduced it;
#   n8  SSSE3 + MOVBE, tuned for small in-order low-power cores.
# A kernel source is compiled once per path it takes part in, with that path's flags and with
# VTQR_PATH naming the namespace its code lands in (vtqr::u8 or vtqr::n8). The frame's dispatch
# table points at the results.
#
# Kernels that run the same code on both paths are compiled for u8 only and fill both columns;
# compiling them twice would only duplicate code. Beware of inline functions from common headers
# in sources compiled for both paths: the linker keeps one copy of each, so such helpers live
# inside the per-path namespace, never outside it.
set(VTQR_PATH_FLAGS_u8 -mssse3 -mtune=core2)
set(VTQR_PATH_FLAGS_n8 -mssse3 -mmovbe -mtune=bonnell)
set(VTQR_PATH_INDEX_u8 0)
set(VTQR_PATH_INDEX_n8 1)

# vtqr_add_kernels(<name> [BOTH_PATHS] SOURCES <src>...)
# Compiles <src> into object libraries that become part of the library. With BOTH_PATHS the
# sources are compiled for u8 and n8, otherwise for u8 only.
function(vtqr_add_kernels name)
  cmake_parse_arguments(K "BOTH_PATHS" "" "SOURCES" ${ARGN})
  set(paths u8)
  if(K_BOTH_PATHS)
    list(APPEND paths n8)
  endif()
  foreach(path IN LISTS paths)
    set(target ${name}_${path})
    add_library(${target} OBJECT ${K_SOURCES})
    target_compile_options(${target} PRIVATE ${VTQR_PATH_FLAGS_${path}})
    target_compile_definitions(${target} PRIVATE
      VTQR_PATH=${path} VTQR_PATH_INDEX=${VTQR_PATH_INDEX_${path}})
    target_link_libraries(${target} PRIVATE vtqr_internal_headers)
    # Linking an object library into the static archive adds its objects to it.
    target_link_libraries(vtqr_impl PRIVATE ${target})
  endforeach()
endfunction()
