#include <string.h>

#include "support.h"

/* Response patterns in rows, the count last. */
static const int32_t role_conflict_table[16][5] = {
    {1, 1, 1, 1, 42}, {1, 1, 1, 2, 23}, {1, 1, 2, 1, 6}, {1, 1, 2, 2, 25},
    {1, 2, 1, 1, 6},  {1, 2, 1, 2, 24}, {1, 2, 2, 1, 7}, {1, 2, 2, 2, 38},
    {2, 1, 1, 1, 1},  {2, 1, 1, 2, 4},  {2, 1, 2, 1, 1}, {2, 1, 2, 2, 6},
    {2, 2, 1, 1, 2},  {2, 2, 1, 2, 9},  {2, 2, 2, 1, 2}, {2, 2, 2, 2, 20}};

static const int32_t carcinoma_table[20][8] = {
    {1, 1, 1, 1, 1, 1, 1, 34}, {1, 1, 1, 1, 2, 1, 1, 2},  {1, 2, 1, 1, 1, 1, 1, 6},
    {1, 2, 1, 1, 1, 1, 2, 1},  {1, 2, 1, 1, 2, 1, 1, 4},  {1, 2, 1, 1, 2, 1, 2, 5},
    {2, 1, 1, 1, 1, 1, 1, 2},  {2, 1, 2, 1, 2, 1, 2, 1},  {2, 2, 1, 1, 1, 1, 1, 2},
    {2, 2, 1, 1, 1, 1, 2, 1},  {2, 2, 1, 1, 2, 1, 1, 2},  {2, 2, 1, 1, 2, 1, 2, 7},
    {2, 2, 1, 1, 2, 2, 2, 1},  {2, 2, 1, 2, 1, 1, 2, 1},  {2, 2, 1, 2, 2, 1, 2, 2},
    {2, 2, 1, 2, 2, 2, 2, 3},  {2, 2, 2, 1, 2, 1, 2, 13}, {2, 2, 2, 1, 2, 2, 2, 5},
    {2, 2, 2, 2, 2, 1, 2, 10}, {2, 2, 2, 2, 2, 2, 2, 16}};

const problem role_conflict = {4, 2, 16, 2, 20, 216, -504.46767012, 6, 9};
const problem carcinoma = {7, 2, 20, 3, 30, 118, -293.70497878, 104, 23};

static int32_t cell(const problem* from, int32_t row, int32_t column) {
  return from->items == 4 ? role_conflict_table[row][column] : carcinoma_table[row][column];
}

static void fill_i32(int32_t* to, size_t n, int32_t value) {
  for (size_t k = 0; k < n; ++k) to[k] = value;
}

static void fill_data(int32_t* y, double* freq, const problem* from) {
  for (int32_t row = 0; row < from->rows; ++row) {
    for (int32_t column = 0; column < from->items; ++column)
      y[row + column * from->rows] = cell(from, row, column);
    freq[row] = cell(from, row, from->items);
  }
}

static void lca_inputs(arguments* a, const problem* from) {
  const size_t items = (size_t)from->items, rows = (size_t)from->rows, nc = (size_t)from->classes;
  const size_t rho = items * nc * (size_t)from->categories;
  add_slot(a, 1, "progress", 'b', sizeof(progress_record), 1);
  memset(a->at[1], 0, sizeof(progress_record));
  ((progress_record*)a->at[1])->size = (int32_t)sizeof(progress_record);
  fill_i32(add_slot(a, 3, "nrc", 'i', 4, items), items, from->categories);
  int32_t* y = add_slot(a, 8, "y", 'i', 4, rows * items);
  fill_i32(add_slot(a, 12, "strata", 'i', 4, rows), rows, 1);
  a->at[13] = NULL; /* no clusters */
  add_slot(a, 14, "cov", 'i', 8, 0);
  double* freq = add_slot(a, 15, "freq", 'i', 8, rows);
  fill_data(y, freq, from);
  double* weight = add_slot(a, 16, "weight", 'i', 8, rows);
  for (size_t k = 0; k < rows; ++k) weight[k] = 1.0;
  fill_i32(add_slot(a, 20, "baseline_gamma", 'i', 4, 1), 1, 1);
  fill_i32(add_slot(a, 21, "binary_gamma", 'i', 4, 1), 1, 2);
  fill_i32(add_slot(a, 36, "gamma_restrictions", 'i', 4, nc), nc, 1);
  fill_i32(add_slot(a, 37, "rho_restrictions", 'i', 4, rho), rho, 1);
}

static void lca_result_arrays(arguments* a, const problem* from) {
  const size_t items = (size_t)from->items, rows = (size_t)from->rows, nc = (size_t)from->classes;
  const size_t rho = items * nc * (size_t)from->categories, starts = (size_t)from->starts;
  const size_t iterations = (size_t)a->i[49];
  const struct {
    int position;
    const char* name;
    char way;
    size_t width, elements;
  } arrays[] = {
      {22, "gamma", 'b', 8, nc},
      {23, "rho", 'b', 8, rho},
      {24, "beta", 'b', 8, nc},
      {25, "post_cls", 'o', 8, rows * nc},
      {26, "response_patterns", 'o', 4, rows * (items + 1)},
      {27, "pattern_counts", 'o', 8, rows * 2},
      {28, "std_gamma", 'o', 8, nc},
      {29, "std_gamma_model", 'o', 8, nc},
      {30, "std_rho", 'o', 8, rho},
      {31, "std_beta", 'o', 8, nc},
      {32, "cov_b", 'o', 8, (nc - 1) * (nc - 1)},
      {34, "run_info", 'o', 4, 24},
      {41, "start_seeds", 'o', 4, starts},
      {42, "start_loglik", 'o', 8, starts},
      {43, "start_converged", 'o', 1, starts},
      {44, "start_iter", 'o', 4, starts},
      {55, "start_status", 'o', 4, starts},
      {60, "n_params", 'o', 4, 9},
      {68, "fit_extra", 'o', 8, 12},
      {72, "llvec", 'o', 8, iterations},
      {79, "drawn_class", 'o', 4, rows},
      {80, "test_stat", 'b', 8, 0},
      {81, "test_p", 'o', 8, 0},
      {82, "test_status", 'o', 4, 0},
      {83, "madvec", 'o', 8, iterations},
      {85, "message", 'o', 1, a->i[84] > 0 ? (size_t)a->i[84] : 0},
  };
  for (size_t k = 0; k < sizeof arrays / sizeof arrays[0]; ++k)
    add_slot(a, arrays[k].position, arrays[k].name, arrays[k].way, arrays[k].width,
             arrays[k].elements);
}

static void lca_result_cells(arguments* a) {
  const struct {
    int position;
    const char* name;
    size_t width;
  } cells[] = {
      {51, "converged", 1},
      {52, "iterations", 4},
      {53, "max_abs_diff", 8},
      {54, "mean_abs_diff", 8},
      {56, "deff", 8},
      {57, "loglik", 8},
      {58, "overflow_count", 4},
      {59, "apparent_df", 4},
      {61, "G2", 8},
      {62, "aic", 8},
      {63, "bic", 8},
      {64, "caic", 8},
      {65, "abic", 8},
      {66, "entropyraw", 8},
      {67, "entropy", 8},
      {69, "cat_loglik", 8},
      {70, "cat_g2", 8},
      {71, "cat_df", 4},
      {73, "n_clusters", 4},
      {74, "cluster_min", 8},
      {75, "cluster_max", 8},
  };
  for (size_t k = 0; k < sizeof cells / sizeof cells[0]; ++k)
    add_slot(a, cells[k].position, cells[k].name, 'o', cells[k].width, 1);
}

void set_up_lca(arguments* a, const problem* from, double criterion, int32_t message_length) {
  memset(a, 0, sizeof *a);
  a->i[2] = from->items;
  a->i[4] = from->categories;
  a->i[5] = from->rows;
  a->i[7] = 1;
  a->u[10] = 1;
  a->i[17] = from->classes;
  a->i[38] = from->starts;
  a->i[39] = 12345;
  a->i[40] = 678;
  a->d[48] = criterion;
  a->i[49] = 20000;
  a->i[50] = 2;
  a->u[76] = 1;
  a->i[84] = message_length;
  lca_inputs(a, from);
  lca_result_arrays(a, from);
  lca_result_cells(a);
  note_contents(a);
}

/* The role conflict table as two items at two times: with nobody moving, the statuses are the
   classes of its latent class analysis. */
static void lta_inputs(arguments* a) {
  const size_t rows = (size_t)role_conflict.rows;
  fill_i32(add_slot(a, 3, "nrs", 'i', 4, 2), 2, 2);
  int32_t* y = add_slot(a, 10, "y", 'i', 4, rows * 4);
  fill_i32(add_slot(a, 13, "strata", 'i', 4, rows), rows, 1);
  double* freq = add_slot(a, 15, "freq", 'i', 8, rows);
  fill_data(y, freq, &role_conflict);
  fill_i32(add_slot(a, 21, "baseline_delta", 'i', 4, 1), 1, 1);
  fill_i32(add_slot(a, 34, "nstarts", 'i', 4, 1), 1, role_conflict.starts);
  fill_i32(add_slot(a, 41, "delta_restrictions", 'i', 4, 2), 2, 1);
  int32_t* fixed = add_slot(a, 42, "tau_restrictions", 'i', 4, 4);
  fill_i32(fixed, 4, 1);
  fixed[1] = fixed[2] = 0;
  fill_i32(add_slot(a, 43, "big_rho_restrictions", 'i', 4, 16), 16, 1);
  double* delta = add_slot(a, 25, "delta", 'b', 8, 2);
  delta[0] = delta[1] = 0.5;
  double* tau = add_slot(a, 26, "tau", 'b', 8, 4);
  tau[0] = tau[3] = 1.0;
  tau[1] = tau[2] = 0.0;
}

static void lta_results(arguments* a) {
  const size_t rows = (size_t)role_conflict.rows, starts = (size_t)role_conflict.starts;
  const size_t iterations = (size_t)a->i[47];
  const struct {
    int position;
    const char* name;
    char way;
    size_t width, elements;
  } arrays[] = {
      {27, "big_rho", 'b', 8, 16},
      {30, "post_cls_sta", 'o', 8, rows * 4},
      {31, "post_cls_adj_sta", 'o', 8, rows * 4},
      {32, "response_patterns", 'o', 4, rows * 5},
      {33, "pattern_counts", 'o', 8, rows * 2},
      {35, "start_seeds", 'o', 4, starts},
      {36, "start_loglik", 'o', 8, starts},
      {37, "start_converged", 'o', 1, starts},
      {38, "start_iter", 'o', 4, starts},
      {39, "start_status", 'o', 4, starts},
      {49, "converged", 'o', 1, 1},
      {50, "iterations", 'o', 4, 1},
      {51, "max_abs_diff", 'o', 8, 1},
      {52, "mean_abs_diff", 'o', 8, 1},
      {53, "run_info", 'o', 4, 24},
      {54, "loglik", 'o', 8, 1},
      {55, "overflow_count", 'o', 4, 1},
      {56, "apparent_df", 'o', 4, 1},
      {57, "n_params", 'o', 4, 9},
      {58, "G2", 'o', 8, 1},
      {59, "aic", 'o', 8, 1},
      {60, "bic", 'o', 8, 1},
      {61, "cat_loglik", 'o', 8, 1},
      {62, "cat_g2", 'o', 8, 1},
      {63, "cat_df", 'o', 4, 1},
      {64, "llvec", 'o', 8, iterations},
      {66, "madvec", 'o', 8, iterations},
      {67, "fit_extra", 'o', 8, 12},
      {72, "message", 'o', 1, a->i[71] > 0 ? (size_t)a->i[71] : 0},
  };
  for (size_t k = 0; k < sizeof arrays / sizeof arrays[0]; ++k)
    add_slot(a, arrays[k].position, arrays[k].name, arrays[k].way, arrays[k].width,
             arrays[k].elements);
}

void set_up_lta(arguments* a, int32_t message_length) {
  memset(a, 0, sizeof *a);
  a->i[2] = 2;
  a->i[4] = 2;
  a->i[5] = 2;
  a->i[6] = role_conflict.rows;
  a->i[9] = 1;
  a->u[12] = 1;
  a->i[16] = role_conflict.classes;
  a->u[40] = 1;
  a->i[44] = 12345;
  a->d[46] = 1e-7;
  a->i[47] = 20000;
  a->i[48] = 2;
  a->u[65] = 1;
  a->i[71] = message_length;
  lta_inputs(a);
  lta_results(a);
  note_contents(a);
}
