/* return_channel.pml - the drain of the return channel, served by two event threads.
 *
 * In:  a service that sends MESSAGES messages and signals channel event 2, once per message or less often.
 * Out: two assertions and one temporal property, checked over every interleaving by check.sh:
 *      - no two drains at once (draining);
 *      - everything sent has been handled once the event was signalled again after things came to rest (handled).
 * An event is a flag: writes before it is served count once. BATCH stands for the 33 of the module. A message is
 * counted or not (refused by VPLS admission, header not cut); both are handled, only the first uses up the batch.
 *
 * Defects that the properties must notice, each a -D of its own: NO_BARRIER, SPLIT_SWAP (test, then set),
 * REARM_FIRST (event written before the barrier is left), NO_REARM.
 * NO_SECOND_SIGNAL leaves the second signal out: then a message may stay, which is why the service signals again.
 * ONE_SIGNAL: one signal behind all messages and none after it: the drain must re-arm itself until all is done.
 */
#ifndef MESSAGES
#define MESSAGES 5
#endif
#ifndef BATCH
#define BATCH 2
#endif

byte queued = 0;    /* messages in "channel/dhcp2vex" */
byte handled = 0;
byte draining = 0;  /* event threads inside the loop */
bool barrier = false;
bool event = false;
bool resignalled = false;

inline enter_barrier(entered) {
#if defined(NO_BARRIER)
  entered = true
#elif defined(SPLIT_SWAP)
  entered = !barrier;
  if
  :: entered -> barrier = true
  :: else
  fi
#else
  atomic { entered = !barrier; barrier = true }
#endif
}

inline drain(used_up, counted) {
  counted = 0;
  used_up = false;
  do
  :: atomic { queued == 0 -> break }          /* the receive fails */
  :: atomic { queued > 0 -> queued-- };       /* a message was received */
     handled++;
     if
     :: counted++                             /* handled to its end */
     :: skip                                  /* dropped: not counted */
     fi;
     if
     :: counted == BATCH -> used_up = true; break
     :: else
     fi
  od
}

active [2] proctype EventThread() {
  bool entered;
  bool used_up;
  byte counted;
end:
  do
  :: atomic { event -> event = false };
     enter_barrier(entered);
     if
     :: entered ->
        draining++;
        assert(draining == 1);
        drain(used_up, counted);
        draining--;
#ifdef REARM_FIRST
        if
        :: used_up -> event = true
        :: else
        fi;
        barrier = false
#else
        barrier = false;
#ifndef NO_REARM
        if
        :: used_up -> event = true
        :: else
        fi
#endif
#endif
     :: else
     fi
  od
}

active proctype Service() {
  byte sent = 0;
  do
  :: sent < MESSAGES ->
     queued++;
     sent++;
#ifndef ONE_SIGNAL
     if
     :: event = true
     :: skip        /* the signal of a later message serves this one too */
     fi
#endif
  :: sent == MESSAGES -> break
  od;
#ifdef ONE_SIGNAL
  event = true;
#else
  timeout;          /* nothing moves any more */
#ifndef NO_SECOND_SIGNAL
  event = true;
  resignalled = true;
#endif
#endif
  timeout;
  assert(queued == 0 && handled == MESSAGES && !barrier)
}

ltl nothing_stays { [] (resignalled -> <> (queued == 0)) }
