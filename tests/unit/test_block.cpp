// Call block accessors in both layouts: descriptor unpacking and relocation, the
// out-of-range indices, the scratch area, and the assertions that keep every access
// inside the segment.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "dllmain.hpp"

namespace {

using qz::wire::get32;
using qz::wire::put32;

constexpr std::uint32_t kBase = 0x40000000;  // the interpreter's address of the segment

class Block : public ::testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    mem.assign(4096, 0);
    dll_compat = GetParam();
    dll_info = mem.data();
    qz::segment_size = static_cast<std::int64_t>(mem.size());
    std::memcpy(dll_info, qz::wire::kMagic, 8);
    put_addr(L().base, kBase);
    put32(dll_info, L().shmsz, static_cast<std::int32_t>(mem.size()));
  }
  const qz::wire::Layout &L() const { return qz::layout(); }
  void put_addr(std::size_t off, std::uint64_t a) {
    if (L().wide)
      std::memcpy(dll_info + off, &a, 8);
    else
      put32(dll_info, off, static_cast<std::int32_t>(a));
  }
  void descriptor(int i, int type, int byref, std::uint64_t ptr, int maxlen, int elsz, int elcnt) {
    std::size_t d = L().args + L().arg_size * static_cast<std::size_t>(i);
    put32(dll_info, d + L().a_type, type);
    put32(dll_info, d + L().a_byref, byref);
    put_addr(d + L().a_ptr, ptr);
    put32(dll_info, d + L().a_maxlen, maxlen);
    put32(dll_info, d + L().a_elsz, elsz);
    put32(dll_info, d + L().a_elcnt, elcnt);
  }
  void argc(int n) { put32(dll_info, L().argc, n); }
  std::vector<unsigned char> mem;
};

TEST_P(Block, DescriptorsAreUnpackedAndRelocated) {
  argc(3);
  descriptor(0, DLL_STRING, 0, kBase + 1024, 8, 3, 1);
  put32(dll_info, 1024, 5);
  descriptor(1, DLL_INTEGER, 1, kBase + 2048, 0, 1, 4);
  descriptor(2, DLL_REAL, 0, kBase + 3000, 0, 3, 2);
  EXPECT_EQ(u_get_argc(), 3);
  EXPECT_EQ(u_get_baseptr(), dll_info);
  t_DLL_ARG a = u_get_arg(1);
  EXPECT_EQ(a.type, DLL_INTEGER);
  EXPECT_EQ(a.byref, 1);
  EXPECT_EQ(a.ptr, dll_info + 2048);
  EXPECT_EQ(a.elsz, 1);
  EXPECT_EQ(a.elcnt, 4);
  t_DLL_ARG s = u_get_arg(0);
  EXPECT_EQ(s.ptr, dll_info + 1024);
  EXPECT_EQ(s.maxlen, 8);
  EXPECT_EQ(u_get_arg(2).ptr, dll_info + 3000);
}

TEST_P(Block, IndicesOutsideTheCallGiveTheMissingArgument) {
  argc(0);
  EXPECT_EQ(u_get_argc(), 0);
  EXPECT_EQ(u_get_arg(0).type, 0);
  argc(2);
  descriptor(0, DLL_STRING, 0, kBase + 1024, 0, 1, 1);
  descriptor(1, DLL_INTEGER, 1, kBase + 2048, 0, 1, 1);
  for (int i : {-1, 2}) {
    t_DLL_ARG a = u_get_arg(i);
    EXPECT_EQ(a.type, 0);
    EXPECT_EQ(a.ptr, nullptr);
    EXPECT_EQ(a.elcnt, 0);
    std::vector<unsigned char> before = mem;
    EXPECT_EQ(u_unref_arg(i), -1);
    EXPECT_EQ(mem, before);
  }
  EXPECT_EQ(u_unref_arg(1), 0);
  EXPECT_EQ(u_get_arg(1).byref, 0);
  EXPECT_EQ(get32(dll_info, L().args + L().arg_size + L().a_byref), 0);
}

TEST_P(Block, ScratchAreaUpToTheEndOfTheSegment) {
  EXPECT_EQ(dll_scratch(1), nullptr);  // none announced
  put_addr(L().scratch, kBase + 4000);
  EXPECT_EQ(dll_scratch(96), dll_info + 4000);  // exactly to the end
  EXPECT_EQ(dll_scratch(97), nullptr);          // one byte more
  EXPECT_EQ(dll_scratch(0), dll_info + 4000);
}

TEST_P(Block, ArrayElementsFollowTheElementSize) {
  // Three reals with elsz 3 occupy 36 consecutive bytes: they fit exactly at the end.
  argc(2);
  descriptor(1, DLL_REAL, 0, kBase + 4096 - 36, 0, 3, 3);
  EXPECT_EQ(u_get_arg(1).elcnt, 3);
  // With elsz 4 the elements start 16 bytes apart: the same start runs past the end.
  descriptor(1, DLL_REAL, 0, kBase + 4096 - 36, 0, 4, 3);
  EXPECT_DEATH(u_get_arg(1), "Assertion `end >= 0 && end <= ");
  descriptor(1, DLL_REAL, 0, kBase + 4096 - 44, 0, 4, 3);
  EXPECT_EQ(u_get_arg(1).elsz, 4);
}

TEST_P(Block, AddressesOutsideTheSegmentFailTheAssertion) {
  const char *cond =
      GetParam() == 64 ? "Assertion `ofs >= 0 && ofs < \\(\\(t_DLL_INFO64 \\*\\)dll_info\\)->shmsz'"
                       : "Assertion `ofs >= 0 && ofs < dll_info->shmsz'";
  argc(2);
  descriptor(0, DLL_STRING, 0, kBase + 4096, 0, 1, 1);
  EXPECT_DEATH(u_get_arg(0), cond);
  descriptor(0, DLL_STRING, 0, kBase - 4, 0, 1, 1);
  EXPECT_DEATH(u_get_arg(0), cond);
  put_addr(L().scratch, kBase + 5000);
  EXPECT_DEATH(dll_scratch(1), cond);
  // The header's size is not trusted beyond the real segment.
  put32(dll_info, L().shmsz, 1 << 20);
  descriptor(0, DLL_INTEGER, 0, kBase + 8192, 0, 1, 1);
  EXPECT_DEATH(u_get_arg(0), cond);
}

TEST_P(Block, StringsMustFitTheirCapacityAndTheSegment) {
  argc(2);
  // maxlen 10: length word and ten characters; it fits exactly at the end.
  descriptor(1, DLL_STRING, 1, kBase + 4096 - 16, 10, 4, 1);
  put32(dll_info, 4096 - 16, 4);
  EXPECT_EQ(u_get_arg(1).maxlen, 10);
  descriptor(1, DLL_STRING, 1, kBase + 4096 - 16, 13, 5, 1);
  EXPECT_DEATH(u_get_arg(1), "Assertion `end >= 0");
  descriptor(1, DLL_STRING, 1, kBase + 4096 - 16, 10, 4, 1);
  put32(dll_info, 4096 - 16, 11);
  EXPECT_DEATH(u_get_arg(1), "Assertion `len >= 0 && len <= maxlen'");
  put32(dll_info, 4096 - 16, -1);
  EXPECT_DEATH(u_get_arg(1), "Assertion `len >= 0 && len <= maxlen'");
  descriptor(1, DLL_INTEGER, 1, kBase + 1026, 0, 1, 1);
  EXPECT_DEATH(u_get_arg(1), "Assertion `\\(ofs & 3\\) == 0'");
  descriptor(1, DLL_INTEGER, 1, kBase + 1024, 0, 1, -1);
  EXPECT_DEATH(u_get_arg(1), "Assertion `a.elcnt >= 0'");
}

TEST_P(Block, DescriptorTableMustLieInTheSegment) {
  argc(1000);
  EXPECT_DEATH(u_get_arg(999), "Assertion `desc_end <= ");
}

INSTANTIATE_TEST_SUITE_P(Layouts, Block, ::testing::Values(0, 64),
                         [](const auto &info) { return info.param ? "bits64" : "bits32"; });

TEST(Block64, ScratchWithZeroLowWordIsPresent) {
  std::vector<unsigned char> mem(4096, 0);
  dll_compat = 64;
  dll_info = mem.data();
  qz::segment_size = 4096;
  std::uint64_t base = 0xAB00000000ULL, scratch = 0xCD00000000ULL;  // low words both 0
  std::memcpy(dll_info + 16, &base, 8);
  put32(dll_info, 28, 4096);
  std::memcpy(dll_info + 32, &scratch, 8);
  EXPECT_EQ(dll_scratch(16), dll_info);
}

}  // namespace
