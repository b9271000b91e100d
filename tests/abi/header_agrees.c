/* Compiles only while the public header and the hand-typed prototypes are the same. */
#include <stddef.h>
#include <tolvenra/tolvenra.h>

#include "support.h"

/* The record of the hand-typed copy has another tag, so its layout is compared member by member. */
#define SAME(member)                                                                       \
  _Static_assert(offsetof(tolvenra_progress, member) == offsetof(progress_record, member), \
                 #member " has moved")
SAME(size);
SAME(stage);
SAME(start);
SAME(nstarts);
SAME(iteration);
SAME(max_iter);
SAME(loglik);
SAME(max_abs_diff);
SAME(best_loglik);
SAME(starts_done);
SAME(reserved);
SAME(notify);
SAME(user);
SAME(cancel);
_Static_assert(sizeof(tolvenra_progress) == sizeof(progress_record), "the record has grown");

#undef FRAME_PROGRESS
#define FRAME_PROGRESS tolvenra_progress
LCA_PROTOTYPE(header_lca_call, uint8_t);
LTA_PROTOTYPE(header_lta_call, uint8_t);

int header_agrees(void);
int header_agrees(void) {
  check_call check = checkversion;
  header_lca_call lca = runlca;
  header_lta_call lta = runlta;
  return check != NULL && lca != NULL && lta != NULL;
}
