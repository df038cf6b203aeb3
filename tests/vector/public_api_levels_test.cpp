// Through the public interface, with the real companions beside it: the
// library uses every companion this processor supports, and every level,
// named or chosen, gives the model's bytes (the interior by the companion,
// the border by the scalar pass. Companions that decline are covered with
// the test doubles of the library's lifecycle tests.
#include <gtest/gtest.h>

#include "library_test_support.h"
#include "modules/unique_ptr_reference_counted.h"
#include "modules/vector_demosaic_module.h"

extern unique_ptr_reference_counted<Vector_sse_demosaic_module> vector_sse_demosaic_module;
extern unique_ptr_reference_counted<Vector_avx2_demosaic_module> vector_avx2_demosaic_module;
extern unique_ptr_reference_counted<Vector_avx512_demosaic_module> vector_avx512_demosaic_module;

namespace {

TEST(Public_api_levels, UsableCompanionsAreUsedAndEveryLevelGivesTheModelBytes) {
  ASSERT_EQ(qn_demosaic_module_initialize(), 0);
  Vector_demosaic_module const* const modules[] = {vector_sse_demosaic_module.get(),
                                                   vector_avx2_demosaic_module.get(),
                                                   vector_avx512_demosaic_module.get()};
  // Otherwise the comparison below would only check the scalar path.
  for (int level = 1; level <= 3; ++level) {
    bool const usable = level <= test_support::processor_level();
    EXPECT_EQ(modules[level - 1]->load_failed, !usable) << "level " << level;
  }
  auto const cases = test_support::make_cases(40);
  for (std::size_t i = 0; i < cases.size(); ++i) {
    for (int const level : {test_support::default_entry, 0, 1, 2, 3}) {
      EXPECT_TRUE(cases[i].transform_is_exact(level)) << "level " << level << ", case " << i;
    }
  }
  qn_demosaic_module_terminate();
}

}  // namespace
