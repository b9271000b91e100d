/* The calls as a host sees them: typed by hand, position by position, and on purpose not taken from
 * the public header. A slip in the header's table cannot hide behind the same slip here.
 *
 * The type of a logical is a parameter: a host may leave anything in the seven bytes beside it. */
#ifndef ABI_FRAME_H
#define ABI_FRAME_H

#include <stdint.h>

#ifndef FRAME_PROGRESS
typedef struct progress_record {
  int32_t size, stage, start, nstarts, iteration, max_iter;
  double loglik, max_abs_diff, best_loglik;
  int32_t starts_done, reserved;
  int32_t (*notify)(struct progress_record*);
  void* user;
  volatile int32_t cancel;
} progress_record;
#define FRAME_PROGRESS progress_record
#endif

#define LCA_POSITIONS 85
#define LTA_POSITIONS 72

typedef void (*check_call)(const int32_t* version, uint8_t* mismatch);

/* clang-format off */
#define LCA_PROTOTYPE(name, L)                                                                  \
  typedef int32_t (*name)(                                                                      \
      FRAME_PROGRESS* p1, int32_t p2, const int32_t* p3, int32_t p4, int32_t p5, int32_t p6,    \
      int32_t p7, const int32_t* p8, L p9, L p10, L p11, const int32_t* p12,                    \
      const int32_t* p13, const double* p14, const double* p15, const double* p16, int32_t p17, \
      L p18, L p19, const int32_t* p20, const int32_t* p21, double* p22, double* p23,           \
      double* p24, double* p25, int32_t* p26, double* p27, double* p28, double* p29,            \
      double* p30, double* p31, double* p32, int32_t p33, int32_t* p34, L p35,                  \
      const int32_t* p36, const int32_t* p37, int32_t p38, int32_t p39, int32_t p40,            \
      int32_t* p41, double* p42, uint8_t* p43, int32_t* p44, double p45, double p46,            \
      double p47, double p48, int32_t p49, int32_t p50, uint8_t* p51, int32_t* p52,             \
      double* p53, double* p54, int32_t* p55, double* p56, double* p57, int32_t* p58,           \
      int32_t* p59, int32_t* p60, double* p61, double* p62, double* p63, double* p64,           \
      double* p65, double* p66, double* p67, double* p68, double* p69, double* p70,             \
      int32_t* p71, double* p72, int32_t* p73, double* p74, double* p75, L p76, L p77, L p78,   \
      int32_t* p79, double* p80, double* p81, int32_t* p82, double* p83, int32_t p84, char* p85)

#define LTA_PROTOTYPE(name, L)                                                                  \
  typedef int32_t (*name)(                                                                      \
      FRAME_PROGRESS* p1, int32_t p2, const int32_t* p3, int32_t p4, int32_t p5, int32_t p6,    \
      int32_t p7, int32_t p8, int32_t p9, const int32_t* p10, L p11, L p12,                     \
      const int32_t* p13, const double* p14, const double* p15, int32_t p16, L p17, L p18,      \
      L p19, L p20, const int32_t* p21, const int32_t* p22, const int32_t* p23,                 \
      const int32_t* p24, double* p25, double* p26, double* p27, double* p28, double* p29,      \
      double* p30, double* p31, int32_t* p32, double* p33, const int32_t* p34, int32_t* p35,    \
      double* p36, uint8_t* p37, int32_t* p38, int32_t* p39, L p40, const int32_t* p41,         \
      const int32_t* p42, const int32_t* p43, int32_t p44, double p45, double p46, int32_t p47, \
      int32_t p48, uint8_t* p49, int32_t* p50, double* p51, double* p52, int32_t* p53,          \
      double* p54, int32_t* p55, int32_t* p56, int32_t* p57, double* p58, double* p59,          \
      double* p60, double* p61, double* p62, int32_t* p63, double* p64, L p65, double* p66,     \
      double* p67, double* p68, double* p69, int32_t* p70, int32_t p71, char* p72)
/* clang-format on */

LCA_PROTOTYPE(lca_call, uint8_t);
LTA_PROTOTYPE(lta_call, uint8_t);
LCA_PROTOTYPE(lca_wide_call, uint64_t);

#endif
