#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "support.h"

enum { GUARD = 64, GUARD_BYTE = 0x5C, FILLING = 0xA5 };

static uint8_t* array_of(const slot* s) { return s->block + GUARD; }
static size_t bytes_of(const slot* s) { return s->width * s->elements; }

void* add_slot(arguments* args, int position, const char* name, char way, size_t width,
               size_t elements) {
  slot* s = &args->slots[args->nslots++];
  const size_t bytes = width * elements;
  s->position = position;
  s->name = name;
  s->way = way;
  s->width = width;
  s->elements = elements;
  s->block = malloc(bytes + 2 * GUARD);
  s->before = malloc(bytes + 1);
  if (s->block == NULL || s->before == NULL) {
    printf("FAILED: no memory\n");
    exit(2);
  }
  memset(s->block, GUARD_BYTE, bytes + 2 * GUARD);
  memset(array_of(s), FILLING, bytes);
  args->at[position] = array_of(s);
  return array_of(s);
}

const slot* slot_at(const arguments* args, int position) {
  for (int k = 0; k < args->nslots; ++k)
    if (args->slots[k].position == position) return &args->slots[k];
  printf("FAILED: position %d has no array\n", position);
  exit(2);
}

void note_contents(arguments* args) {
  for (int k = 0; k < args->nslots; ++k)
    memcpy(args->slots[k].before, array_of(&args->slots[k]), bytes_of(&args->slots[k]));
}

int untouched(const arguments* args, int position) {
  const slot* s = slot_at(args, position);
  return memcmp(s->before, array_of(s), bytes_of(s)) == 0;
}

void expect_guards(const arguments* args, const char* where) {
  for (int k = 0; k < args->nslots; ++k) {
    const slot* s = &args->slots[k];
    int whole = 1;
    for (size_t b = 0; b < GUARD; ++b)
      whole = whole && s->block[b] == GUARD_BYTE && array_of(s)[bytes_of(s) + b] == GUARD_BYTE;
    expect(whole, "%s: bytes beside position %d (%s) were written", where, s->position, s->name);
    if (s->way == 'i')
      expect(untouched(args, s->position), "%s: input %d (%s) was changed", where, s->position,
             s->name);
  }
}

void free_arguments(arguments* args) {
  for (int k = 0; k < args->nslots; ++k) {
    free(args->slots[k].block);
    free(args->slots[k].before);
  }
  memset(args, 0, sizeof *args);
}

int message_has(const arguments* args, int length_position, int position, const char* text) {
  const char* message = args->at[position];
  const size_t length = (size_t)args->i[length_position], size = strlen(text);
  for (size_t first = 0; first + size <= length; ++first)
    if (memcmp(message + first, text, size) == 0) return 1;
  return 0;
}

/* clang-format off */
#define LCA_ARGUMENTS(L)                                                                       \
  a->at[1], a->i[2], a->at[3], a->i[4], a->i[5], a->i[6], a->i[7], a->at[8], L(9), L(10),      \
  L(11), a->at[12], a->at[13], a->at[14], a->at[15], a->at[16], a->i[17], L(18), L(19),        \
  a->at[20], a->at[21], a->at[22], a->at[23], a->at[24], a->at[25], a->at[26], a->at[27],      \
  a->at[28], a->at[29], a->at[30], a->at[31], a->at[32], a->i[33], a->at[34], L(35),           \
  a->at[36], a->at[37], a->i[38], a->i[39], a->i[40], a->at[41], a->at[42], a->at[43],         \
  a->at[44], a->d[45], a->d[46], a->d[47], a->d[48], a->i[49], a->i[50], a->at[51],            \
  a->at[52], a->at[53], a->at[54], a->at[55], a->at[56], a->at[57], a->at[58], a->at[59],      \
  a->at[60], a->at[61], a->at[62], a->at[63], a->at[64], a->at[65], a->at[66], a->at[67],      \
  a->at[68], a->at[69], a->at[70], a->at[71], a->at[72], a->at[73], a->at[74], a->at[75],      \
  L(76), L(77), L(78), a->at[79], a->at[80], a->at[81], a->at[82], a->at[83], a->i[84],        \
  a->at[85]
/* clang-format on */

#define NARROW(p) a->u[p]
#define WIDE(p) (upper_bits << 8 | a->u[p])

int32_t call_lca(const library* lib, const arguments* a) { return lib->lca(LCA_ARGUMENTS(NARROW)); }

int32_t call_lca_wide(const library* lib, const arguments* a, uint64_t upper_bits) {
  return lib->lca_wide(LCA_ARGUMENTS(WIDE));
}

int32_t call_lta(const library* lib, const arguments* a) {
  return lib->lta(a->at[1], a->i[2], a->at[3], a->i[4], a->i[5], a->i[6], a->i[7], a->i[8], a->i[9],
                  a->at[10], a->u[11], a->u[12], a->at[13], a->at[14], a->at[15], a->i[16],
                  a->u[17], a->u[18], a->u[19], a->u[20], a->at[21], a->at[22], a->at[23],
                  a->at[24], a->at[25], a->at[26], a->at[27], a->at[28], a->at[29], a->at[30],
                  a->at[31], a->at[32], a->at[33], a->at[34], a->at[35], a->at[36], a->at[37],
                  a->at[38], a->at[39], a->u[40], a->at[41], a->at[42], a->at[43], a->i[44],
                  a->d[45], a->d[46], a->i[47], a->i[48], a->at[49], a->at[50], a->at[51],
                  a->at[52], a->at[53], a->at[54], a->at[55], a->at[56], a->at[57], a->at[58],
                  a->at[59], a->at[60], a->at[61], a->at[62], a->at[63], a->at[64], a->u[65],
                  a->at[66], a->at[67], a->at[68], a->at[69], a->at[70], a->i[71], a->at[72]);
}
