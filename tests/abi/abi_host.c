/* A host in C: loads the library at run time and runs one group of checks.
 *
 * usage: abi_host LIBRARY GROUP */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "support.h"

enum { MESSAGE = 1000 };

static const char* const ok_text = "OK so far!";

/* The padded text that a run without a report leaves. */
static int message_is_ok(const arguments* args) {
  const char* message = args->at[85];
  for (int32_t k = 0; k < args->i[84]; ++k)
    if (message[k] != (k < 10 ? ok_text[k] : ' ')) return 0;
  return 1;
}

static void print_message(const arguments* args, int length_position, int position) {
  printf("  message: %.*s\n", (int)args->i[length_position], (const char*)args->at[position]);
}

/* One run of the role conflict data with few starts, for groups that make many. */
static void set_up_small(arguments* args) {
  problem small = role_conflict;
  small.starts = 3;
  set_up_lca(args, &small, 1e-7, MESSAGE);
}

static void check_version(const char* path) {
  static const struct {
    int32_t version[3];
    uint8_t mismatch;
  } cases[] = {{{4, 3, 2}, 0},    {{4, 3, 1}, 255}, {{1, 3, 2}, 255}, {{4, 2, 2}, 255},
               {{4, 3, 20}, 255}, {{0, 0, 0}, 255}, {{4, 3, -2}, 255}};
  library lib = load_library(path);
  for (size_t k = 0; k < sizeof cases / sizeof cases[0]; ++k) {
    arguments args = {0};
    int32_t* version = add_slot(&args, 1, "version", 'i', 4, 3);
    uint8_t* mismatch = add_slot(&args, 2, "mismatch", 'o', 1, 1);
    memcpy(version, cases[k].version, sizeof cases[k].version);
    note_contents(&args);
    lib.check(version, mismatch);
    expect(*mismatch == cases[k].mismatch, "version %d.%d.%d: mismatch %d", version[0], version[1],
           version[2], *mismatch);
    expect_guards(&args, "checkversion");
    free_arguments(&args);
  }
  uint8_t mismatch = 0;
  lib.check(cases[0].version, NULL);
  lib.check(NULL, &mismatch);
  expect(mismatch == 255, "no version: mismatch %d", mismatch);
  unload_library(&lib);
}

static void expect_near(double have, double want, double tolerance, const char* what) {
  expect(fabs(have - want) <= tolerance, "%s is %.10f, not %.10f", what, have, want);
}

/* The parts of a good run that follow from each other. */
static void expect_consistent(const arguments* a, const problem* p) {
  const int32_t iterations = i32_at(a, 52, 0);
  double best = -INFINITY, observed = 0.0, expected = 0.0, share = 0.0;
  for (int32_t s = 0; s < p->starts; ++s) {
    best = fmax(best, f64_at(a, 42, (size_t)s));
    expect(u8_at(a, 43, (size_t)s) == 0 || u8_at(a, 43, (size_t)s) == 255, "flag of start %d",
           s + 1);
    expect(i32_at(a, 55, (size_t)s) == 0, "status of start %d", s + 1);
  }
  expect(best == f64_at(a, 57, 0), "the log-likelihood is that of the best start");
  expect(iterations == i32_at(a, 44, (size_t)i32_at(a, 34, 1) - 1), "iterations of that start");
  expect(i32_at(a, 34, 0) == 1 && i32_at(a, 34, 2) == p->starts, "run_info 1 and 3");
  expect(i32_at(a, 34, 4) == p->rows, "%d patterns", i32_at(a, 34, 4));
  for (int32_t row = 0; row < p->rows; ++row) {
    observed += f64_at(a, 27, (size_t)row);
    expected += f64_at(a, 27, (size_t)(p->rows + row));
  }
  expect(observed == p->people, "%g people", observed);
  expect(expected <= observed * (1 + 1e-12), "expected counts of the patterns");
  for (int32_t c = 0; c < p->classes; ++c) share += f64_at(a, 22, (size_t)c);
  expect_near(share, 1.0, 1e-12, "the sum of the class shares");
  for (int32_t row = 0; row < p->items * p->classes; ++row)
    expect_near(f64_at(a, 23, (size_t)row) + f64_at(a, 23, (size_t)(p->items * p->classes + row)),
                1.0, 1e-12, "the sum of a row of rho");
}

/* Histories end with the last iteration; the host's filling stays behind it. */
static void expect_histories(const arguments* a) {
  const size_t n = (size_t)i32_at(a, 52, 0);
  double filling;
  memcpy(&filling, slot_at(a, 72)->before, sizeof filling);
  expect(n >= 2 && n < (size_t)a->i[49], "%d iterations", (int)n);
  expect(f64_at(a, 72, n - 1) >= f64_at(a, 72, 0), "llvec rises");
  expect(f64_at(a, 72, n - 1) != filling && f64_at(a, 72, n) == filling, "extent of llvec");
  expect(f64_at(a, 83, n - 1) <= a->d[48] && f64_at(a, 83, n) == filling, "extent of madvec");
}

static void run_known(const library* lib, const problem* p, const char* name) {
  static const int unwritten[] = {28, 29, 30, 31, 32, 79, 80, 81, 82};
  arguments a;
  set_up_lca(&a, p, 1e-9, MESSAGE);
  if (!expect(call_lca(lib, &a) == 0, "%s: the run fails", name)) print_message(&a, 84, 85);
  expect_guards(&a, name);
  expect(u8_at(&a, 51, 0) == 255, "%s: converged is %d", name, u8_at(&a, 51, 0));
  expect_near(f64_at(&a, 57, 0), p->loglik, 1e-6, name);
  expect(i32_at(&a, 59, 0) == p->df, "%s: %d degrees of freedom", name, i32_at(&a, 59, 0));
  expect(i32_at(&a, 60, 0) == p->parameters, "%s: %d parameters", name, i32_at(&a, 60, 0));
  expect_near(f64_at(&a, 62, 0), f64_at(&a, 61, 0) + 2.0 * p->parameters, 1e-9, "aic");
  expect(message_is_ok(&a), "%s: the message of a good run", name);
  if (i32_at(&a, 52, 0) > 0) {
    expect_consistent(&a, p);
    expect_histories(&a);
  }
  for (size_t k = 0; k < sizeof unwritten / sizeof unwritten[0]; ++k)
    expect(untouched(&a, unwritten[k]), "%s: position %d was not asked for", name, unwritten[k]);
  free_arguments(&a);
}

/* The second problem gives every dimension another value, so that no two can change places. */
static void check_known_answers(const char* path) {
  library lib = load_library(path);
  run_known(&lib, &role_conflict, "role conflict");
  run_known(&lib, &carcinoma, "carcinoma");
  unload_library(&lib);
}

/* Do both runs hold the same bits in all results? */
static int same_results(const arguments* one, const arguments* other) {
  for (int k = 0; k < one->nslots; ++k) {
    const slot* s = &one->slots[k];
    if (s->way == 'i' || s->position == 1) continue;
    if (memcmp(one->at[s->position], other->at[s->position], s->width * s->elements) != 0) {
      printf("  position %d (%s) differs\n", s->position, s->name);
      return 0;
    }
  }
  return 1;
}

/* Any value but 0 is true, and only the byte counts. */
static void check_logicals(const char* path) {
  library lib = load_library(path);
  static const int flags[] = {10, 11, 76};
  static const uint8_t truths[] = {2, 0x80, 0xFF};
  arguments plain, other;
  set_up_small(&plain);
  plain.u[11] = 1;
  expect(call_lca(&lib, &plain) == 0, "a run with weights");
  for (size_t f = 0; f < sizeof flags / sizeof flags[0]; ++f)
    for (size_t t = 0; t < sizeof truths; ++t) {
      set_up_small(&other);
      other.u[11] = 1;
      other.u[flags[f]] = truths[t];
      expect(call_lca(&lib, &other) == 0 && same_results(&plain, &other), "position %d as %d",
             flags[f], truths[t]);
      free_arguments(&other);
    }
  set_up_small(&other);
  other.u[76] = 0;
  expect(call_lca(&lib, &other) == 0 && untouched(&other, 25), "posteriors that nobody wants");
  free_arguments(&other);
#if defined(_WIN32)
  /* The convention leaves seven bytes of a logical's slot undefined. */
  set_up_small(&other);
  other.u[11] = 1;
  expect(call_lca_wide(&lib, &other, UINT64_C(0xFFFFFFFFFFFFFF)) == 0, "dirty logicals");
  expect(same_results(&plain, &other), "dirty logicals change the results");
  free_arguments(&other);
#endif
  free_arguments(&plain);
  unload_library(&lib);
}

/* Every address that may be left out, left out alone: the run is good and the rest is the same. */
static void check_optional(const char* path) {
  library lib = load_library(path);
  arguments whole, a;
  set_up_small(&whole);
  expect(call_lca(&lib, &whole) == 0, "the whole run");
  for (int k = 0; k < whole.nslots; ++k) {
    const int position = whole.slots[k].position;
    if (position == 3 || position == 8 || position == 15) continue;
    set_up_small(&a);
    a.at[position] = NULL;
    if (!expect(call_lca(&lib, &a) == 0, "position %d left out", position) && position != 85)
      print_message(&a, 84, 85);
    expect(untouched(&a, position), "position %d was written although it was not given", position);
    expect_guards(&a, whole.slots[k].name);
    a.at[position] = whole.at[position];
    expect(same_results(&whole, &a), "results without position %d", position);
    free_arguments(&a);
  }
  set_up_small(&a);
  for (int k = 0; k < a.nslots; ++k)
    if (a.slots[k].way == 'o') a.at[a.slots[k].position] = NULL;
  expect(call_lca(&lib, &a) == 0, "a run without results");
  free_arguments(&a);
  free_arguments(&whole);
  unload_library(&lib);
}

static void expect_entry_cells(const arguments* a, const char* where) {
  expect(u8_at(a, 51, 0) == 0 && i32_at(a, 52, 0) == -1, "%s: converged %d, iterations %d", where,
         u8_at(a, 51, 0), i32_at(a, 52, 0));
  for (size_t k = 0; k < 24; ++k)
    expect(i32_at(a, 34, k) == 0, "%s: run_info %d", where, (int)k + 1);
}

/* All results but those that a run sets on entry are as the host left them. */
static void expect_results_untouched(const arguments* a, const char* where) {
  for (int k = 0; k < a->nslots; ++k) {
    const int position = a->slots[k].position;
    if (position == 34 || position == 51 || position == 52 || position == 85) continue;
    expect(untouched(a, position), "%s: position %d (%s) was written", where, position,
           a->slots[k].name);
  }
  expect_guards(a, where);
}

/* Addresses that a run needs, with the option that makes it need them. */
static void check_required(const char* path) {
  static const struct {
    int position, option; /* option: position of a value to set to 1, 0 none */
    const char* text;
  } cases[] = {{3, 0, "position 3 (nrc)"},
               {8, 0, "position 8 (y)"},
               {12, 9, "position 12 (strata)"},
               {14, 6, "position 14 (cov)"},
               {15, 10, "position 15 (freq)"},
               {16, 11, "position 16 (weight)"},
               {21, 19, "position 21 (binary_gamma)"},
               {23, 35, "position 23 (rho)"}};
  library lib = load_library(path);
  for (size_t k = 0; k < sizeof cases / sizeof cases[0]; ++k) {
    arguments a;
    set_up_small(&a);
    a.at[cases[k].position] = NULL;
    if (cases[k].option == 6)
      a.i[6] = 1;
    else if (cases[k].option != 0)
      a.u[cases[k].option] = 1;
    expect(call_lca(&lib, &a) == -1, "%s: the run succeeds", cases[k].text);
    if (!expect(message_has(&a, 84, 85, "A required argument is missing (NULL address):") &&
                    message_has(&a, 84, 85, cases[k].text),
                "%s: report", cases[k].text))
      print_message(&a, 84, 85);
    expect_entry_cells(&a, cases[k].text);
    expect_results_untouched(&a, cases[k].text);
    free_arguments(&a);
  }
  unload_library(&lib);
}

static const char* const class_report =
    "The number of latent classes specified was 100 The allowable range is 0 to 99";

static void set_up_failing(arguments* args, int32_t message_length) {
  problem failing = role_conflict;
  failing.classes = 100;
  failing.starts = 3;
  set_up_lca(args, &failing, 1e-7, message_length);
}

/* The report cut at the buffer's end, the byte behind it untouched. */
static void check_messages(const char* path) {
  static const int32_t lengths[] = {0, -5, 1, 2, 3, 4, 40, 76, 77, 78, 79, 80, 81, 200};
  library lib = load_library(path);
  arguments whole, a;
  set_up_failing(&whole, MESSAGE);
  expect(call_lca(&lib, &whole) == -1, "100 classes");
  expect(memchr(whole.at[85], '\0', MESSAGE) == NULL, "a NUL in the report");
  for (size_t k = 0; k < sizeof lengths / sizeof lengths[0]; ++k) {
    const int32_t length = lengths[k];
    set_up_failing(&a, length);
    expect(call_lca(&lib, &a) == -1, "length %d", length);
    expect_guards(&a, "message");
    if (length >= 40)
      expect(memcmp(a.at[85], whole.at[85], 40) == 0, "length %d: first 40 characters", length);
    if (length > 0)
      expect(memchr(a.at[85], '\0', (size_t)length) == NULL, "length %d: a NUL", length);
    free_arguments(&a);
    problem good = role_conflict;
    good.starts = 1;
    set_up_lca(&a, &good, 1e-3, length);
    expect(call_lca(&lib, &a) == 0 && (length < 1 || message_is_ok(&a)), "good run, length %d",
           length);
    expect_guards(&a, "message of a good run");
    free_arguments(&a);
  }
  free_arguments(&whole);
  unload_library(&lib);
}

static void check_failing(const char* path) {
  library lib = load_library(path);
  arguments a;
  set_up_failing(&a, MESSAGE);
  expect(call_lca(&lib, &a) == -1, "100 classes: the run succeeds");
  if (!expect(message_has(&a, 84, 85, class_report), "100 classes: report"))
    print_message(&a, 84, 85);
  expect_entry_cells(&a, "100 classes");
  expect_results_untouched(&a, "100 classes");
  free_arguments(&a);
  unload_library(&lib);
}

/* Workers of the first run may still sleep when the host lets the library go. */
static void check_reload(const char* path) {
  arguments first, second;
  set_up_small(&first);
  set_up_small(&second);
  library lib = load_library(path);
  expect(call_lca(&lib, &first) == 0, "first run");
  unload_library(&lib);
  lib = load_library(path);
  expect(call_lca(&lib, &second) == 0, "run after loading again");
  expect(same_results(&first, &second), "both runs agree");
  unload_library(&lib);
  free_arguments(&first);
  free_arguments(&second);
}

static int32_t cancel_at_third(progress_record* progress) {
  return ++*(int32_t*)progress->user >= 3;
}

static void check_progress(const char* path) {
  library lib = load_library(path);
  arguments a;
  int32_t calls = 0;
  for (int polled = 0; polled < 2; ++polled) {
    set_up_small(&a);
    progress_record* progress = a.at[1];
    progress->user = &calls;
    progress->notify = polled ? NULL : cancel_at_third;
    progress->cancel = polled;
    calls = 0;
    expect(call_lca(&lib, &a) == -1, "a cancelled run succeeds");
    expect(message_has(&a, 84, 85, "The run was cancelled by the host."), "report");
    expect(u8_at(&a, 51, 0) == 0 && i32_at(&a, 52, 0) == -1, "entry cells");
    expect(polled || calls == 3, "%d calls of notify", calls);
    expect(i32_at(&a, 34, 11) == 1, "run_info tells of it");
    expect(untouched(&a, 22) && untouched(&a, 57), "no estimates");
    expect_guards(&a, "cancelled run");
    free_arguments(&a);
  }
  /* A record too small for its members is none. */
  set_up_small(&a);
  ((progress_record*)a.at[1])->size = 8;
  ((progress_record*)a.at[1])->cancel = 1;
  expect(call_lca(&lib, &a) == 0, "a run with a record of another kind");
  free_arguments(&a);
  unload_library(&lib);
}

/* Nobody moves, so the answer is that of the latent class analysis of the same table. */
static void check_lta_answer(const library* lib) {
  arguments a;
  set_up_lta(&a, MESSAGE);
  if (!expect(call_lta(lib, &a) == 0, "runlta: the run")) print_message(&a, 71, 72);
  expect(u8_at(&a, 49, 0) == 255 && i32_at(&a, 50, 0) > 1, "runlta: converged");
  expect(fabs(f64_at(&a, 54, 0) - role_conflict.loglik) < 1e-6, "runlta: loglik %.9f",
         f64_at(&a, 54, 0));
  expect(i32_at(&a, 56, 0) == role_conflict.df, "runlta: df %d", i32_at(&a, 56, 0));
  expect(i32_at(&a, 57, 0) == role_conflict.parameters, "runlta: parameters");
  expect(f64_at(&a, 26, 1) == 0.0 && f64_at(&a, 26, 3) == 1.0, "runlta: fixed transitions");
  for (size_t k = 0; k < 16; ++k) { /* the status of a case is the same at both times */
    expect(fabs(f64_at(&a, 30, k) - f64_at(&a, 30, k + 16)) < 1e-12, "runlta: posterior");
    expect(fabs(f64_at(&a, 31, k) - f64_at(&a, 30, k)) < 1e-12, "runlta: stayers");
  }
  expect(memcmp(a.at[72], ok_text, strlen(ok_text)) == 0, "runlta: message");
  expect_guards(&a, "runlta");
  free_arguments(&a);
}

static void check_lta(const char* path) {
  static const int32_t lengths[] = {MESSAGE, 40, 1, 0};
  library lib = load_library(path);
  check_lta_answer(&lib);
  for (size_t k = 0; k < sizeof lengths / sizeof lengths[0]; ++k) {
    arguments a;
    set_up_lta(&a, lengths[k]);
    a.at[10] = NULL;
    expect(call_lta(&lib, &a) == -1, "no responses: the run succeeds");
    expect(u8_at(&a, 49, 0) == 0 && i32_at(&a, 50, 0) == -1, "entry cells");
    for (size_t e = 0; e < 24; ++e) expect(i32_at(&a, 53, e) == 0, "run_info %d", (int)e + 1);
    expect(lengths[k] == 0 || memcmp(a.at[72], ok_text, 1) != 0, "the message is a report");
    for (int s = 0; s < a.nslots; ++s) {
      const int position = a.slots[s].position;
      if (position != 49 && position != 50 && position != 53 && position != 72)
        expect(untouched(&a, position), "position %d (%s) was written", position, a.slots[s].name);
    }
    expect_guards(&a, "runlta");
    free_arguments(&a);
  }
  unload_library(&lib);
}

/* For comparing systems: the fixed point of EM, far closer than the comparison asks. */
static void print_estimates(const char* path) {
  library lib = load_library(path);
  arguments a;
  set_up_lca(&a, &role_conflict, 1e-13, MESSAGE);
  expect(call_lca(&lib, &a) == 0, "the run");
  for (size_t k = 0; k < 2; ++k) printf("gamma %d %.17g\n", (int)k, f64_at(&a, 22, k));
  for (size_t k = 0; k < 16; ++k) printf("rho %d %.17g\n", (int)k, f64_at(&a, 23, k));
  for (size_t k = 0; k < 32; ++k) printf("post_cls %d %.17g\n", (int)k, f64_at(&a, 25, k));
  printf("loglik 0 %.17g\n", f64_at(&a, 57, 0));
  printf("G2 0 %.17g\n", f64_at(&a, 61, 0));
  for (size_t k = 0; k < 20; ++k) printf("start_seeds %d %d\n", (int)k, i32_at(&a, 41, k));
  free_arguments(&a);
  unload_library(&lib);
}

int main(int argc, char** argv) {
  static const struct {
    const char* name;
    void (*run)(const char* path);
  } groups[] = {{"version", check_version},    {"known_answers", check_known_answers},
                {"logicals", check_logicals},  {"optional", check_optional},
                {"required", check_required},  {"messages", check_messages},
                {"failing", check_failing},    {"reload", check_reload},
                {"progress", check_progress},  {"lta", check_lta},
                {"estimates", print_estimates}};
  for (size_t k = 0; argc == 3 && k < sizeof groups / sizeof groups[0]; ++k)
    if (strcmp(argv[2], groups[k].name) == 0) {
      groups[k].run(argv[1]);
      printf("abi %s: %d checks, %d failed\n", argv[2], checks_made, checks_failed);
      return checks_failed != 0;
    }
  printf("usage: abi_host LIBRARY GROUP\n");
  return 2;
}
