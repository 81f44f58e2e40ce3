#pragma once
// An agent and everything that comes to it from outside, each as an input that can be recorded and
// replayed.
//
//    program: begin(), state( file ), config( file ), events( file ), play()
//    console: change( kind, text )                                           --> FileRecorder, if
//    any Replay -> the same kinds of inputs, from a recording                            |
//                        `---------------------> Agent, EventPlayer <----------------'
//
// Invariants
// 1. What changes the agent is an input or follows from one.
// 2. A replay makes its agent with the features, the settings, the chip and the environment of the
//    recorded one, or none.
//
// Ownership: owns the chip, the agent and the player; not the scheduler and the recorder, which
// outlive it.

#include <optional>
#include <string_view>

#include "agent/Agent.h"
#include "agent/AgentProgram.h"
#include "agent/player/EventPlayer.h"
#include "agent/record/Recorder.h"

namespace QonAgent {

class AgentRun {
 public:
   using Say = EventPlayer::Say;

   /** `recorder` may be null. `say` takes what the loading of files has to say. */
   AgentRun( Kiv::TaskScheduler & scheduler, FileRecorder * recorder, Say say, Chips chips );
   /** Ends the agent, as an input. */
   ~AgentRun();

   /** Makes the chip of that name, the first for none, and the agent over it. Velto::RangeError for
       a setting that no feature knows. */
   void begin( const String & chip = "", const Settings & settings = {} );
   /** Files; Velto::RangeError says what is wrong with one. */
   void state( const String & file );
   void config( const String & file );
   void events( const String & file );
   /** State and configuration have been given, or there are none. */
   void inputsRead();
   /** Begins to play the events. */
   void play();
   /** A change that a client asks for, see Changes.h. */
   String change( const String & kind, const String & text );

   Agent & agent() { return *agent_; }
   QonChip::Chip & chip() { return *chip_; }
   /** Null without events. */
   EventPlayer * player() { return player_.ptr(); }

   /** Gives a replay all kinds of inputs. */
   void kindsTo( Recorder & recorder );
   /** Why a recording cannot be replayed by this program; empty if it can. */
   const String & refusal() const { return refusal_; }

 private:
   void kind( const String & name, InputKind does ) { kinds_[name] = std::move( does ); }
   void giveKinds();
   void input( const String & name, const String & text );
   void inputFile( const String & kind, const String & file );
   void start( const String & description );
   const QonChip::MakeChip & makerOf( const String & chip ) const;
   void refuse( const String & why );
   void loadConfig( const String & file, std::string_view text );
   void need() const;

   Kiv::TaskScheduler & scheduler_;
   FileRecorder * recorder_;
   Say say_;
   const Chips chips_;
   String answer_; ///< to the last change
   String refusal_;
   std::map< String, InputKind > kinds_;
   std::unique_ptr< QonChip::Chip > chip_;
   std::optional< Agent > agent_;
   Velto::Ptr< EventPlayer > player_;
};

/** Replays a file: 0 the same, 1 different, 2 unreadable; `say` hears which. */
int replayFile( const String & file, const EventPlayer::Say & say, const Chips & chips );

} // namespace QonAgent
