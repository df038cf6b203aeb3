# The vector instruction-set levels, in the order of their numbers in the
# library's test entry (1, 2, 3), and the libraries that the demosaic library
# opens at run time. Every list of companions in the build is made from these.
set(OQA_VECTOR_LEVELS sse avx2 avx512)
set(OQA_COMPANIONS)
set(OQA_VECTOR_KERNELS)
foreach(level IN LISTS OQA_VECTOR_LEVELS)
  list(APPEND OQA_COMPANIONS ostrevan_oqa_demosaic_vector_${level})
  list(APPEND OQA_VECTOR_KERNELS oqa_vector_kernel_${level})
endforeach()
set(OQA_RUNTIME_MODULES ${OQA_COMPANIONS} ostrevan_oqa_logger)

# oqa_needs_runtime_modules(<target>): <target> runs the library, which opens
# the companions and the logger by name, so they are built with it.
function(oqa_needs_runtime_modules target)
  add_dependencies(${target} ${OQA_RUNTIME_MODULES})
endfunction()
