/* try_lock.pml - the snooping lock: the gates of the host hook try it, everybody else waits for it.
 *
 * In:  two forwarding threads with PACKETS packets each, the configuration service, a report timer, the drain with
 *      its trust test (the only place where a second thing, the drain barrier, is held while the lock is waited for).
 * Out: properties checked over every interleaving by check.sh:
 *      - never two holders, and nobody is left waiting when all have finished (assertions, end states);
 *      - every packet gets a verdict, also while a holder never lets go (HOLDER_STOPS, gate_never_waits);
 *      - a packet that found the lock busy passed, every other one was judged under the lock.
 * Defects that must be noticed: GATE_WAITS, NESTED (the lock is taken twice by one thread), NO_TEST (the result of
 * the try is not looked at).
 */
#ifndef PACKETS
#define PACKETS 2
#endif

bool lock = false;
byte holders = 0;
bool barrier = false;
byte judged = 0;
byte unpoliced = 0;
byte in_hook = 0;
byte finished = 0;

inline acquire() { atomic { !lock -> lock = true }; holders++; assert(holders == 1) }
inline release() { holders--; lock = false }

inline try_acquire(held) {
#ifdef GATE_WAITS
  atomic { !lock -> lock = true; held = true }
#else
  atomic { held = !lock; lock = true }
#endif
#ifdef NO_TEST
  held = true;
#endif
  if
  :: held -> holders++; assert(holders == 1)
  :: else
  fi
}

active [2] proctype Gate() {
  byte packet = 0;
  bool held;
  do
  :: packet < PACKETS ->
     packet++;
     in_hook++;
     try_acquire(held);
     if
     :: held -> judged++; release()
     :: else -> unpoliced++
     fi;
     in_hook--
  :: packet == PACKETS -> break
  od;
  finished++
}

active proctype Configuration() {
  acquire();
#ifdef HOLDER_STOPS
  if
  :: true ->
     end_stopped: false   /* never goes on while it holds the lock */
  :: skip
  fi;
#endif
  release();
  finished++
}

active proctype ReportTimer() {
  acquire();
  skip;                   /* builds and sends inner messages: a full channel refuses, nothing waits */
  release();
  finished++
}

active proctype Drain() {
  barrier = true;
  acquire();              /* trust test of VPLS admission */
#ifdef NESTED
  acquire();
  release();
#endif
  release();
  barrier = false;
  finished++
}

#ifndef HOLDER_STOPS
active proctype Observer() {
  finished == 5;
  assert(!lock && !barrier && holders == 0 && judged + unpoliced == 2 * PACKETS)
}
#endif

ltl gate_never_waits { [] (in_hook > 0 -> <> (in_hook == 0)) }
