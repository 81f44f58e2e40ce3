#include "platform/Kiv/Log.h"

#include <syslog.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <tuple>
#include <utility>

#include "platform/Kiv/Printable.h"
#include "platform/Velto/Assert.h"
#include "platform/Velto/Scope.h"

namespace Kiv {

using Velto::RangeError;
using Velto::String;

namespace {

/** Constructed by the first handle, so that it outlives all static ones. */
std::vector< LogHandle * > &
registry() {
   static std::vector< LogHandle * > handles;
   return handles;
}

LogSink * installed = nullptr;
bool sinkBusy = false;

const char *
kindName( LogArg::Kind kind ) {
   switch ( kind ) {
   case LogArg::Kind::text:
      return "text";
   case LogArg::Kind::number:
      return "32-bit number";
   case LogArg::Kind::counter:
      return "64-bit counter";
   }
   return "";
}

LogArg::Kind
kindOf( char conversion ) {
   return conversion == 's'   ? LogArg::Kind::text
          : conversion == 'd' ? LogArg::Kind::number
                              : LogArg::Kind::counter;
}

/** Calls `plain( begin, end )` for each run of plain text, and `converts( kind )` for each
    conversion, in order. */
template< class Plain, class Converts >
void
forEachPiece( const char * format, Plain && plain, Converts && converts ) {
   while ( *format ) {
      const char * end = format + std::strcspn( format, "%" );
      plain( format, end );
      if ( *end == 0 ) {
         return;
      }
      const char conversion = end[1];
      VELTO_ASSERT( conversion == 's' || conversion == 'd' || conversion == 'L' ||
                    conversion == '%' );
      conversion == '%' ? plain( end, end + 1 ) : converts( kindOf( conversion ) );
      format = end + 2;
   }
}

std::vector< LogArg::Kind >
kindsOf( const LogDescriptor & descriptor ) {
   std::vector< LogArg::Kind > kinds;
   forEachPiece(
         descriptor.format, []( const char *, const char * ) {},
         [&]( LogArg::Kind kind ) { kinds.push_back( kind ); } );
   return kinds;
}

String
countFault( const LogDescriptor & descriptor, std::size_t wanted, std::size_t given ) {
   return String( descriptor.name ) + " takes " + std::to_string( wanted ) + " arguments, not " +
          std::to_string( given );
}

String
kindFault( const LogDescriptor & descriptor, std::size_t index, LogArg::Kind wanted ) {
   return String( descriptor.name ) + " takes a " + kindName( wanted ) + " as argument " +
          std::to_string( index + 1 );
}

/** Fatal unless the arguments are what the format converts. */
void
checkArgs( const LogDescriptor & descriptor, std::span< const LogArg > args ) {
   std::size_t count = 0, wrong = args.size();
   LogArg::Kind wanted{};
   forEachPiece(
         descriptor.format, []( const char *, const char * ) {},
         [&]( LogArg::Kind kind ) {
            if ( count < wrong && args[count].kind() != kind ) {
               wrong = count;
               wanted = kind;
            }
            ++count;
         } );
   if ( count != args.size() || wrong < args.size() ) [[unlikely]] {
      const String fault = count != args.size() ? countFault( descriptor, count, args.size() )
                                                : kindFault( descriptor, wrong, wanted );
      Velto::assertFail( fault.c_str(), __FILE__, __LINE__, __PRETTY_FUNCTION__ );
   }
}

String
expand( const LogDescriptor & descriptor, std::span< const LogArg > args ) {
   String text;
   text.reserve( std::strlen( descriptor.format ) + 16 * args.size() );
   auto arg = args.begin();
   forEachPiece(
         descriptor.format,
         [&]( const char * begin, const char * end ) { text.append( begin, end ); },
         [&]( LogArg::Kind ) { ( arg++ )->appendTo( text ); } );
   return text;
}

/** The whole of `text` as a T; false if it is none. */
template< class T >
bool
parse( const String & text, T & number ) {
   const char * end = text.data() + text.size();
   auto [stop, error] = std::from_chars( text.data(), end, number );
   return error == std::errc() && stop == end;
}

LogArg
argOf( const LogDescriptor & descriptor, std::size_t index, LogArg::Kind kind,
       const String & text ) {
   U32 number = 0;
   S32 negative = 0;
   U64 counter = 0;
   if ( kind == LogArg::Kind::text ) {
      return text;
   }
   if ( kind == LogArg::Kind::counter && parse( text, counter ) ) {
      return counter;
   }
   if ( kind == LogArg::Kind::number && parse( text, number ) ) {
      return number;
   }
   if ( kind == LogArg::Kind::number && parse( text, negative ) ) {
      return negative;
   }
   throw RangeError( kindFault( descriptor, index, kind ) + ", not \"" + text + "\"" );
}

class StandardError : public LogSink {
 public:
   void message( const LogDescriptor & descriptor, const String & text ) override {
      std::fprintf( stderr, "%s(%u): %s\n", descriptor.name, unsigned( descriptor.severity ),
                    printable( text ).c_str() );
   }
};

class Syslog : public LogSink {
 public:
   void message( const LogDescriptor & descriptor, const String & text ) override {
      syslog( int( descriptor.severity ), "%s: %s", descriptor.name, text.c_str() );
   }
};

} // namespace

String
logRecommendedAction( const LogDescriptor & descriptor ) {
   const char * action = descriptor.recommendedAction;
   if ( std::strcmp( action, logStandardAction1 ) == 0 ) {
      return "No action is required.";
   }
   if ( std::strcmp( action, logStandardAction3 ) == 0 ) {
      return "If the condition persists, contact your technical support representative.";
   }
   return action;
}

void
LogArg::appendTo( String & text ) const {
   char digits[24];
   const auto number = kind_ == Kind::counter
                             ? std::to_chars( digits, std::end( digits ), U64( number_ ) )
                             : std::to_chars( digits, std::end( digits ), number_ );
   kind_ == Kind::text ? text += text_ : text.append( digits, number.ptr );
}

LogHandle::LogHandle( const LogDescriptor & descriptor, Seconds interval, double second, U32 zero1,
                      U32 zero2, const char * module )
    : descriptor_( descriptor ), module_( module ), interval_( interval ), second_( second ),
      zero1_( zero1 ), zero2_( zero2 ), lastEmitted_( -never ) {
   registry().push_back( this );
}

LogHandle::~LogHandle() {
   std::erase( registry(), this );
}

bool
LogHandle::okToLog() const {
   return interval_ <= 0 ||
          now() >= lastEmitted_ + interval_; // a sum, as whoever waits for it makes
}

bool
logArgs( LogHandle & handle, std::span< const LogArg > args ) {
   checkArgs( handle.descriptor_, args );
   if ( !handle.okToLog() ) {
      return false;
   }
   const String text = expand( handle.descriptor_, args );
   const Seconds former = handle.lastEmitted_;
   if ( handle.interval_ > 0 ) {
      handle.lastEmitted_ = now();
   }
   const bool nested = std::exchange( sinkBusy, true );
   const Velto::AtEnd done( [nested] { sinkBusy = nested; } );
   LogSink & sink = installed && !nested ? *installed : logStandardError();
   try {
      sink.message( handle.descriptor_, text );
   } catch ( ... ) {
      handle.lastEmitted_ = former; // it was not emitted
      throw;
   }
   return true;
}

bool
logByName( const String & name, const std::vector< String > & args, const String & module ) {
   LogHandle * handle = logHandle( name, module );
   if ( !handle ) {
      throw RangeError( "No module " + ( module.empty() ? module : module + " " ) +
                        "raises a message \"" + name + "\"" );
   }
   const LogDescriptor & descriptor = handle->descriptor();
   auto kinds = kindsOf( descriptor );
   if ( kinds.size() != args.size() ) {
      throw RangeError( countFault( descriptor, kinds.size(), args.size() ) );
   }
   std::vector< LogArg > typed;
   for ( std::size_t i = 0; i < args.size(); ++i ) {
      typed.push_back( argOf( descriptor, i, kinds[i], args[i] ) );
   }
   return logArgs( *handle, typed );
}

std::vector< LogHandle * >
logHandles() {
   auto rank = []( const LogHandle * h ) {
      return std::tuple< String, String >( h->descriptor().name, h->module() );
   };
   std::vector< LogHandle * > handles = registry();
   std::stable_sort( handles.begin(), handles.end(),
                     [&]( const auto * a, const auto * b ) { return rank( a ) < rank( b ); } );
   return handles;
}

LogHandle *
logHandle( const String & name, const String & module ) {
   for ( LogHandle * handle : logHandles() ) {
      if ( name == handle->descriptor().name && ( module.empty() || module == handle->module() ) ) {
         return handle;
      }
   }
   return nullptr;
}

void
logWindowsReset() {
   for ( LogHandle * handle : registry() ) {
      handle->lastEmitted_ = -never;
   }
}

LogSink &
logStandardError() {
   static StandardError sink;
   return sink;
}

LogSink &
logSyslog() {
   static Syslog sink;
   return sink;
}

LogSink *
logSinkIs( LogSink * sink ) {
   return std::exchange( installed, sink );
}

} // namespace Kiv
