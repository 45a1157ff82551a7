"""The mutation tool's site finder and sampler on a small piece of C++."""
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))
import mutate  # noqa: E402

SNIPPET = """#include <vector>
// a < b in a comment
namespace n {
constexpr double kTolerance = 0.5;
struct Box { int size = 3; };
void grow(std::vector<int>& v, int n)
{
    for (int i = 0; i < n; ++i)
        v.push_back(i + 1);
    const char* s = "x - y < z";
    std::array<int, 3> a{};
    v[2] = a[0] - 1;
}
int twice(int x) { return x + x; }
}
"""


def test_sites_of_a_snippet_are_exactly_the_expected_edits():
    sites = mutate.find_sites(SNIPPET, "src/n/n.cpp", "n")
    found = sorted((s.line, s.operator, s.replacement) for s in sites)
    assert found == sorted([
        (4, "constant", "constexpr double kTolerance = 0.75;"),
        (5, "constant", "struct Box { int size = 4; };"),
        (7, "return-early", "{ return;"),
        (8, "comparison", "for (int i = 0; i <= n; ++i)"),
        (8, "constant", "for (int i = 1; i < n; ++i)"),
        (9, "drop-statement", ";"),
        (9, "arithmetic", "v.push_back(i - 1);"),
        (9, "constant", "v.push_back(i + 2);"),
        (12, "drop-statement", ";"),
        (12, "arithmetic", "v[2] = a[0] + 1;"),
        (12, "constant", "v[1] = a[0] - 1;"),  # a subscript goes down, staying in bounds
        (12, "constant", "v[2] = a[1] - 1;"),
        (12, "constant", "v[2] = a[0] - 2;"),
        (14, "return-early", "int twice(int x) { return {}; return x + x; }"),
        (14, "arithmetic", "int twice(int x) { return x - x; }"),
    ])


def test_sample_is_fixed_by_its_seed_and_reaches_every_subsystem():
    sites = [mutate.Site(f"s{k % 3}", f"f{k}.cpp", k, "constant", "x", "y") for k in range(60)]
    first = mutate.stratified_sample(sites, 12, seed=7)
    assert first == mutate.stratified_sample(sites, 12, seed=7)
    assert first != mutate.stratified_sample(sites, 12, seed=8)
    assert sorted({s.subsystem for s in first}) == ["s0", "s1", "s2"] and len(first) == 12


def test_a_moved_line_is_found_again_and_a_changed_one_is_not():
    lines = ["", "a = b + c;", "x", "a = b + c;"]
    assert mutate.locate(lines, 4, "a = b + c;") == 4
    assert mutate.locate(lines, 3, "a = b + c;") in (2, 4)
    assert mutate.locate(lines, 2, "a = b - c;") is None
