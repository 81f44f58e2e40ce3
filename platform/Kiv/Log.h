#pragma once
// The log facility: named messages for the operator.
//
//    module: handle.okToLog() --yes--> Kiv::log( handle, arguments... )
//                                         | check and expand the format, stamp the handle
//                                         v
//                                      LogSink (standard error, syslog, a recorder)
//    console: Kiv::logByName( "ACL_HW_RESOURCE_FULL", { "acl1" } ) -> the same path
//
// Invariants
// 1. The arguments of a message have the number and the kinds of its format's conversions: %s a
//    text, %d a number of at most 32 bits, %L a U64. Anything else is a fatal assertion, whether
//    or not the message would be suppressed.
// 2. A handle emits at most one message per interval. The interval counts from the last message
//    that was emitted; a suppressed one does not prolong it. It belongs to the handle: arguments
//    make no difference, and another module's handle of the same message is not affected.
// 3. okToLog() only asks; Kiv::log() stamps.
// 4. What is found by name does not depend on the order in which handles were constructed.
// 5. A message that a sink raises while it is given one goes to standard error. An exception of a
//    sink passes to whoever raised the message, which then counts as not emitted.
//
// Ownership: a descriptor outlives its handles; handles are static objects of the modules that
// raise; an installed sink stays its owner's.

#include <concepts>
#include <initializer_list>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/Kiv/Time.h"
#include "platform/Velto/Types.h"

namespace Kiv {

/** The numbers of syslog. */
enum LogSeverity : U32 {
   logError = 3,
   logWarning = 4,
   logNotice = 5,
   logInformational = 6,
};

/** The standard recommended actions: codes in the place of a text. */
inline constexpr char logStandardAction1[] = "\x01";
inline constexpr char logStandardAction3[] = "\x03";

/** One message: constant, statically initialised. */
struct LogDescriptor {
   const char * name;              ///< facility and mnemonic, joined by "_"
   const char * format;            ///< %s, %d, %L (a U64) and %%
   const char * explanation;       ///< what happened
   const char * recommendedAction; ///< a text, or one of the standard actions
   U32 severity;                   ///< LogSeverity
   U32 zero;
};

/** The recommended action as the operator reads it: standard actions are spelled out. */
Velto::String logRecommendedAction( const LogDescriptor & descriptor );

/** One typed argument of a message. */
class LogArg {
 public:
   enum class Kind : U8 { text, number, counter };

   LogArg( const char * text ) : kind_( Kind::text ), text_( text ) {}
   LogArg( Velto::String text ) : kind_( Kind::text ), text_( std::move( text ) ) {}

   /** Numbers. 64 bits are for counters, which are unsigned. */
   template< std::integral T >
   requires( !std::same_as< T, bool > && (sizeof( T ) < 8 || std::is_unsigned_v< T >))
         LogArg( T number )
       : kind_( sizeof( T ) < 8 ? Kind::number : Kind::counter ), number_( S64( number ) ) {}

   /** Value types: those that convert to a number (VLAN ids) count as numbers, others with a
       stringValue() (interfaces, addresses) as texts. */
   template< class T >
   requires( std::is_class_v< T > && !std::convertible_to< T, Velto::String > &&
             ( std::convertible_to< T, U32 > ||
               requires( const T & v ) { Velto::String( v.stringValue() ); } ) )
         LogArg( const T & value )
       : kind_( Kind::text ) {
      if constexpr ( std::convertible_to< T, U32 > ) {
         kind_ = Kind::number;
         number_ = S64( U32( value ) );
      } else {
         text_ = value.stringValue();
      }
   }

   Kind kind() const { return kind_; }
   /** Adds the argument to a message, as that shows it. */
   void appendTo( Velto::String & text ) const;

 private:
   Kind kind_;
   Velto::String text_;
   S64 number_ = 0; ///< a counter's bits, or the number itself
};

/** The right of one module to raise one message. */
class LogHandle {
 public:
   /** `interval`: seconds between two emissions, 0 for no limit. The second parameter and the two
       words are kept for the platform's sake and have no effect here. `module` names the owner
       and, like `descriptor`, outlives the handle. */
   LogHandle( const LogDescriptor & descriptor, Seconds interval, double second, U32 zero1,
              U32 zero2, const char * module = "" );
   LogHandle( const LogHandle & ) = delete;
   LogHandle & operator=( const LogHandle & ) = delete;
   ~LogHandle();

   /** Whether a message raised now would be emitted. Changes nothing. */
   bool okToLog() const;

   const LogDescriptor & descriptor() const { return descriptor_; }
   const char * module() const { return module_; }
   Seconds interval() const { return interval_; }

 private:
   friend bool logArgs( LogHandle & handle, std::span< const LogArg > args );
   friend void logWindowsReset();

   const LogDescriptor & descriptor_;
   const char * module_;
   Seconds interval_;
   double second_;
   U32 zero1_;
   U32 zero2_;
   Seconds lastEmitted_;
};

/** Raises a message with arguments in format order. Returns whether it was emitted; false is
    "too soon". */
bool logArgs( LogHandle & handle, std::span< const LogArg > args );

template< class... Args >
bool
log( LogHandle & handle, const Args &... args ) {
   std::initializer_list< LogArg > list = { LogArg( args )... };
   return logArgs( handle, { list.begin(), list.size() } );
}

/** Raises a message by its name; the texts are read as the format's kinds. Without `module` the
    handle of the alphabetically first module is used. Returns whether it was emitted.
    RangeError: no such message or module, a wrong count, a text that is no such number. */
bool logByName( const Velto::String & name, const std::vector< Velto::String > & args,
                const Velto::String & module = "" );

/** All handles, by message name, then by module. */
std::vector< LogHandle * > logHandles();

/** The handle of a message, of the alphabetically first module where `module` is empty; null if
    there is none. */
LogHandle * logHandle( const Velto::String & name, const Velto::String & module = "" );

/** Forgets all emissions: the next message of every handle is emitted. For a process in which
    time starts again. */
void logWindowsReset();

/** Where emitted messages go. */
class LogSink {
 public:
   virtual ~LogSink() = default;
   virtual void message( const LogDescriptor & descriptor, const Velto::String & text ) = 0;
};

/** "<name>(<severity>): <text>", one line each. */
LogSink & logStandardError();
/** syslog(3), with the message's severity and "<name>: <text>". */
LogSink & logSyslog();

/** Installs `sink` and returns the one before; null is standard error. */
LogSink * logSinkIs( LogSink * sink );

} // namespace Kiv
