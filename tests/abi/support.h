/* Loading the library, arrays between guard bytes, and the arguments of a call by position. */
#ifndef ABI_SUPPORT_H
#define ABI_SUPPORT_H

#include <stddef.h>
#include <stdint.h>

#include "frame.h"

/* --- checks ---------------------------------------------------------------------------------- */

extern int checks_made, checks_failed;

/* Counts a check; prints a failed one. \return good */
int expect(int good, const char* format, ...);

/* --- the library ----------------------------------------------------------------------------- */

typedef struct library {
  void* handle;
  check_call check;
  lca_call lca;
  lca_wide_call lca_wide; /* the same address, logicals passed in 8 bytes */
  lta_call lta;
} library;

/* Ends the program when the library or one of its names is missing. */
library load_library(const char* path);
void unload_library(library* lib);

/* --- arguments ------------------------------------------------------------------------------- */

/* One address position. The array lies between guard bytes, its content is a known filling. */
typedef struct slot {
  int position;
  const char* name;
  char way;        /* 'i' in, 'o' out, 'b' both */
  size_t width;    /* bytes of an element */
  size_t elements; /* for this call */
  uint8_t* block;  /* guard, array, guard */
  uint8_t* before; /* what the array held before the call */
} slot;

#define MAX_POSITIONS 86

/* by position: values in i, u, d; addresses in at, NULL to leave one out */
typedef struct arguments {
  int32_t i[MAX_POSITIONS];
  uint8_t u[MAX_POSITIONS];
  double d[MAX_POSITIONS];
  void* at[MAX_POSITIONS];
  slot slots[64];
  int nslots;
} arguments;

/* Adds an array of zero or more elements, filled with the byte 0xA5. */
void* add_slot(arguments* args, int position, const char* name, char way, size_t width,
               size_t elements);
const slot* slot_at(const arguments* args, int position);
/* Remembers what the arrays hold: what the checks below compare with. */
void note_contents(arguments* args);
/* Guard bytes whole, inputs unchanged. */
void expect_guards(const arguments* args, const char* where);
/* Does the array still hold what note_contents saw? */
int untouched(const arguments* args, int position);
void free_arguments(arguments* args);

int32_t call_lca(const library* lib, const arguments* args);
int32_t call_lca_wide(const library* lib, const arguments* args, uint64_t upper_bits);
int32_t call_lta(const library* lib, const arguments* args);

static inline double f64_at(const arguments* args, int position, size_t k) {
  return ((const double*)args->at[position])[k];
}
static inline int32_t i32_at(const arguments* args, int position, size_t k) {
  return ((const int32_t*)args->at[position])[k];
}
static inline uint8_t u8_at(const arguments* args, int position, size_t k) {
  return ((const uint8_t*)args->at[position])[k];
}
/* The message holds `text` somewhere. */
int message_has(const arguments* args, int length_position, int position, const char* text);

/* --- problems with known answers ------------------------------------------------------------- */

typedef struct problem {
  int32_t items, categories, rows, classes, starts, people;
  double loglik;
  int32_t df, parameters;
} problem;

extern const problem role_conflict; /* Goodman (1974), 216 people */
extern const problem carcinoma;     /* Agresti (2002), table 13.1, 118 slides */

/* A complete call: every address given, message of `length` characters. */
void set_up_lca(arguments* args, const problem* from, double criterion, int32_t message_length);
void set_up_lta(arguments* args, int32_t message_length);

#endif
