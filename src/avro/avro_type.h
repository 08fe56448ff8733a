// A parsed Avro schema: a graph of nodes (named types may refer to
// themselves), all in one arena that qel_avro_type_free releases.
#ifndef QEL_AVRO_TYPE_H
#define QEL_AVRO_TYPE_H

#include <cstdint>

#include "avro/avro_internal.h"

namespace qel::avro {

enum class kind : uint8_t {
  null,
  boolean,
  int32,
  int64,
  float32,
  float64,
  bytes,
  string,
  record,
  enumeration,
  array,
  map,
  choice,
  fixed
};

struct node;

struct field {
  const char *name;
  int64_t length;
  const node *type;
};

struct node {
  kind k;
  int64_t count;                // record: fields; union: branches; enum: symbols; fixed: size
  const node *items;            // array items, map values
  const field *fields;          // record
  const node *const *branches;  // union
  int64_t min_size;             // fewest bytes a value takes
};

// Requires nothing: the arena's blocks, newest first.
struct arena_block {
  arena_block *next;
};

}  // namespace qel::avro

struct qel_avro_type {
  qel::avro::arena_block *blocks;
  const qel::avro::node *root;
};

#endif
