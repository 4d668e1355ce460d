// Counting the objects of a package product by product, with saturating sums.
#include "NOMZUBProxy/object_limit.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <map>

#include "services/NOMZUBVGXGenerator.h"

namespace nomzub::proxy {
namespace {

// The most objects a package may hold (SetMaxObjects; 0: kDefaultMaxObjects).
std::atomic<uint64_t> g_max_objects{0};

// a + b, or cap when that is more (a and b at most cap).
uint64_t AddUpTo(uint64_t cap, uint64_t a, uint64_t b) { return a > cap - b ? cap : a + b; }

// How many objects one instance of oid brings, its own structure included, counted from the
// products up without expanding a single instance: each product's count is the sum of its
// children's, added once per instance and saturated just above limit, so a structure whose
// instances double at every level costs one step per product rather than one per object.
// Counts are kept in *counts; the first product whose count passes limit goes to *over.
uint64_t CountObjects(const Project& project, const std::string& oid, uint64_t limit,
                      std::map<std::string, uint64_t>* counts, std::string* over) {
  const uint64_t cap = limit == UINT64_MAX ? limit : limit + 1;
  struct Step {
    const Product* product;
    size_t next_child;
    uint64_t objects;
  };
  std::vector<Step> stack;
  auto enter = [&](const std::string& product_oid) {
    auto known = counts->find(product_oid);
    if (known != counts->end()) return known->second;
    stack.push_back({&project.products.at(product_oid), 0, 1});
    return uint64_t{0};
  };
  uint64_t result = enter(oid);
  while (!stack.empty()) {
    Step& step = stack.back();
    if (step.next_child < step.product->children.size()) {
      const std::string& child = step.product->children[step.next_child].product;
      auto known = counts->find(child);
      if (known == counts->end()) {
        enter(child);  // counted first; this step resumes at the same child
        continue;
      }
      step.objects = AddUpTo(cap, step.objects, std::min(cap, known->second));
      ++step.next_child;
      continue;
    }
    (*counts)[step.product->oid] = step.objects;
    if (step.objects > limit && over->empty()) *over = step.product->oid;
    result = step.objects;
    stack.pop_back();
  }
  return result;
}

}  // namespace

bool CheckObjectCount(const Project& project, const std::vector<const Instance*>& entries,
                      std::string* error) {
  const uint64_t limit = nomzub::MaxObjects();
  std::map<std::string, uint64_t> counts;
  uint64_t total = 0;  // never above limit
  for (const Instance* entry : entries) {
    std::string over;
    uint64_t objects = CountObjects(project, entry->product, limit, &counts, &over);
    if (objects > limit || total > limit - objects) {
      if (over.empty()) over = entry->product;
      *error = "the package would hold more than " + std::to_string(limit) +
               " objects (the limit), passed at product " + over;
      return false;
    }
    total += objects;
  }
  return true;
}

}  // namespace nomzub::proxy

void nomzub::SetMaxObjects(uint64_t n) { proxy::g_max_objects = n; }

uint64_t nomzub::MaxObjects() {
  uint64_t n = proxy::g_max_objects;
  return n == 0 ? kDefaultMaxObjects : n;
}
