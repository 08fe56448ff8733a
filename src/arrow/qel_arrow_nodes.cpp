// Allocation and release of the ArrowSchema and ArrowArray nodes an export
// makes.
#include "arrow/qel_arrow_nodes.h"

#include <cstring>

#include "qel_std_inline.h"

namespace qel::arrow {
namespace {

// The private block of a schema node: child pointers, child structs, then
// the format and name strings.
struct schema_block {
  ArrowSchema **children;
};

void schema_release(ArrowSchema *s) {
  for (int64_t i = 0; i < s->n_children; ++i) {
    ArrowSchema *c = s->children[i];
    if (c->release != nullptr) c->release(c);
  }
  qel_free(s->private_data);
  s->release = nullptr;
}

// The private block of an array node: the buffer pointers, the blocks it
// owns, child pointers and child structs.
struct array_block {
  const void *buffers[3];
  void *owned[3];
};

void array_release(ArrowArray *a) {
  for (int64_t i = 0; i < a->n_children; ++i) {
    ArrowArray *c = a->children[i];
    if (c->release != nullptr) c->release(c);
  }
  auto *b = static_cast<array_block *>(a->private_data);
  for (void *p : b->owned) qel_free(p);
  qel_free(b);
  a->release = nullptr;
}

}  // namespace

void schema_make(ArrowSchema *s, const char *format, const char *name, int64_t name_len, int64_t flags,
                 int64_t n_children) {
  const size_t format_len = std::strlen(format);
  const size_t kids = static_cast<size_t>(n_children);
  const size_t bytes = sizeof(schema_block) + kids * (sizeof(ArrowSchema *) + sizeof(ArrowSchema)) + format_len + 1 +
                       static_cast<size_t>(name_len) + 1;
  auto *b = static_cast<schema_block *>(qel_malloc(bytes));
  auto **ptrs = reinterpret_cast<ArrowSchema **>(b + 1);
  auto *structs = reinterpret_cast<ArrowSchema *>(ptrs + kids);
  char *text = reinterpret_cast<char *>(structs + kids);
  for (size_t i = 0; i < kids; ++i) {
    ptrs[i] = &structs[i];
    structs[i].release = nullptr;
  }
  std::memcpy(text, format, format_len + 1);
  char *name_text = text + format_len + 1;
  if (name_len > 0) std::memcpy(name_text, name, static_cast<size_t>(name_len));
  name_text[name_len] = '\0';
  b->children = ptrs;
  s->format = text;
  s->name = name_text;
  s->metadata = nullptr;
  s->flags = flags;
  s->n_children = n_children;
  s->children = kids != 0 ? ptrs : nullptr;
  s->dictionary = nullptr;
  s->release = schema_release;
  s->private_data = b;
}

bool schema_same(const ArrowSchema *a, const ArrowSchema *b) {
  if (std::strcmp(a->format, b->format) != 0 || std::strcmp(a->name, b->name) != 0 || a->flags != b->flags ||
      a->n_children != b->n_children)
    return false;
  for (int64_t i = 0; i < a->n_children; ++i)
    if (!schema_same(a->children[i], b->children[i])) return false;
  return true;
}

void array_make(ArrowArray *a, int64_t length, int n_buffers, int64_t n_children) {
  const size_t kids = static_cast<size_t>(n_children);
  auto *b =
      static_cast<array_block *>(qel_malloc(sizeof(array_block) + kids * (sizeof(ArrowArray *) + sizeof(ArrowArray))));
  auto **ptrs = reinterpret_cast<ArrowArray **>(b + 1);
  auto *structs = reinterpret_cast<ArrowArray *>(ptrs + kids);
  for (size_t i = 0; i < kids; ++i) {
    ptrs[i] = &structs[i];
    structs[i].release = nullptr;
  }
  for (int i = 0; i < 3; ++i) {
    b->buffers[i] = nullptr;
    b->owned[i] = nullptr;
  }
  a->length = length;
  a->null_count = 0;
  a->offset = 0;
  a->n_buffers = n_buffers;
  a->n_children = n_children;
  a->buffers = b->buffers;
  a->children = kids != 0 ? ptrs : nullptr;
  a->dictionary = nullptr;
  a->release = array_release;
  a->private_data = b;
}

void *array_buffer(ArrowArray *a, int slot, size_t bytes) {
  auto *b = static_cast<array_block *>(a->private_data);
  void *p = qel_malloc(bytes);
  b->owned[slot] = p;
  b->buffers[slot] = p;
  return p;
}

void *array_buffer_resize(ArrowArray *a, int slot, size_t bytes) {
  auto *b = static_cast<array_block *>(a->private_data);
  void *p = qel_detail::xrealloc(b->owned[slot], bytes);
  b->owned[slot] = p;
  b->buffers[slot] = p;
  return p;
}

void release_both(ArrowSchema *s, ArrowArray *a) {
  if (s->release != nullptr) s->release(s);
  if (a->release != nullptr) a->release(a);
  s->release = nullptr;
  a->release = nullptr;
}

}  // namespace qel::arrow
