/* Work on the library's threads, and what to do once it is started.

prints:
sum: 4950
*/
#include <OmbrixC/OmbrixC.h>
#include <stdatomic.h>
#include <stdio.h>
#include <threads.h>

static atomic_int sum;
static atomic_int left = 100;
static atomic_bool isBehind;

static void add(void* context) {
  atomic_fetch_add(&sum, *(int*)context);
  atomic_fetch_sub(&left, 1);
}

static void behind(void* context) {
  (void)context;
  atomic_store(&isBehind, true);
}

int main(void) {
  int numbers[100];
  OmbrixOperationQueue* queue = ombrix_OperationQueue_init();
  for (int i = 0; i < 100; ++i) {
    numbers[i] = i;
    ombrix_OperationQueue_addOperationWithBlock_(queue, add, &numbers[i]);
  }
  ombrix_OperationQueue_addCompletionBarrierBlock_(queue, behind, NULL);
  while (atomic_load(&left) > 0 || !atomic_load(&isBehind)) thrd_yield();
  printf("sum: %d\n", atomic_load(&sum));
  ombrix_OperationQueue_release(queue);

  ombrix_Library_end();
  return ombrix_Library_liveHandles() == 0 ? 0 : 1;
}
