#pragma once
// Debug traces: each module has a facility and writes numbered levels of detail to it.
//
//    module: FLINTLOG_TRACE( facility, level, pieces... ) --unheard--> one load, one branch
//                    | heard: the pieces are evaluated and joined
//                    v
//            the facility's own sink, else the process's: a Handle (a file) or a test's sink
//
// Invariants
// 1. Traces have no effects: nothing depends on whether anybody listens. No clock is read.
// 2. The pieces of a trace that nobody hears are not evaluated.
// 3. A level filter is kept by facility name and holds for facilities that are constructed later.
//
// Ownership: facilities are static objects of their modules; sinks stay their installers'.

#include <concepts>
#include <cstdio>
#include <memory>
#include <string_view>
#include <type_traits>

#include "platform/Velto/Types.h"

namespace Flintlog {

/** The finest level of detail; 0 is the coarsest. */
constexpr U8 finestLevel = 9;

class Sink {
 public:
   virtual ~Sink() = default;
   virtual void trace( const char * facility, U8 level, const Velto::String & text ) = 0;
};

/** Installs the process's sink and returns the one before; null is none. */
Sink * sinkIs( Sink * sink );

/** The finest level heard of the facilities of that name; finestLevel unless it was set. */
void levelIs( const Velto::String & facility, U8 finest );

/** What one module traces to; a static object of the module's source. Several of one name may
    exist. */
class Facility {
 public:
   /** `name` outlives the facility. */
   explicit Facility( const char * name );
   Facility( const Facility & ) = delete;
   Facility & operator=( const Facility & ) = delete;
   ~Facility();

   const char * name() const { return name_; }
   /** Whether a trace of that level goes anywhere. */
   bool hears( U8 level ) const { return level < heardBelow_; }
   /** Gives this facility a sink of its own in place of the process's; null takes it away. */
   void sinkIs( Sink * sink );
   void write( U8 level, const Velto::String & text ) const;

 private:
   friend Sink * Flintlog::sinkIs( Sink * sink );
   friend void Flintlog::levelIs( const Velto::String & facility, U8 finest );
   void update();

   U8 heardBelow_ = 0;
   const char * name_;
   Sink * sink_ = nullptr;
};

/** A sink that writes lines "<number> <facility> <level> <text>" to the end of "<name>.qt". */
class Handle : public Sink {
 public:
   /** Opens the file, in the directory that is set then; a slash in `name` becomes "_". Without
       a file (the directory cannot be written) all traces are dropped. Levels finer than
       `finest` are too. */
   explicit Handle( const Velto::String & name, U8 finest = finestLevel );
   Handle( const Handle & ) = delete;
   Handle & operator=( const Handle & ) = delete;
   ~Handle() override;

   void trace( const char * facility, U8 level, const Velto::String & text ) override;

   const Velto::String & path() const { return path_; }
   bool open() const { return file_ != nullptr; }

   /** Where the files of later handles are created; the current directory by default. */
   static void directoryIs( const Velto::String & directory );

 private:
   Velto::String path_;
   U8 finest_;
   U32 lines_ = 0;
   std::FILE * file_;
};

/** A module's trace handle; null until it is set up. */
using HandlePtr = std::unique_ptr< Handle >;

/** @name Joining of pieces */
/** @{ */
void append( Velto::String & text, std::string_view piece );
void append( Velto::String & text, S64 number );
void append( Velto::String & text, U64 number );
void append( Velto::String & text, double number );

template< class T >
concept Shown = requires( const T & v ) {
   std::string_view( v.stringValue() );
};

/** Texts, characters, numbers, truth values ("True", "False"), enumerators (their number) and
    everything with a stringValue(). A pointer to one of those is that or "None". */
template< class T >
void
appendPiece( Velto::String & text, const T & piece ) {
   if constexpr ( std::convertible_to< T, std::string_view > ) {
      append( text, std::string_view( piece ) );
   } else if constexpr ( Shown< T > ) {
      append( text, std::string_view( piece.stringValue() ) );
   } else if constexpr ( std::same_as< T, bool > ) {
      append( text, std::string_view( piece ? "True" : "False" ) );
   } else if constexpr ( std::same_as< T, char > ) {
      append( text, std::string_view( &piece, 1 ) );
   } else if constexpr ( std::is_enum_v< T > ) {
      appendPiece( text, std::underlying_type_t< T >( piece ) );
   } else if constexpr ( std::floating_point< T > ) {
      append( text, double( piece ) );
   } else if constexpr ( std::unsigned_integral< T > ) {
      append( text, U64( piece ) );
   } else if constexpr ( std::integral< T > ) {
      append( text, S64( piece ) );
   } else {
      static_assert(
            requires {
               *piece;
               bool( piece );
            },
            "This cannot be traced" );
      if ( piece ) {
         appendPiece( text, *piece );
      } else {
         append( text, std::string_view( "None" ) );
      }
   }
}

template< class... Pieces >
Velto::String
joined( const Pieces &... pieces ) {
   Velto::String text;
   ( appendPiece( text, pieces ), ... );
   return text;
}
/** @} */

} // namespace Flintlog

/** Writes the joined pieces to the facility if anybody hears that level of it. */
#define FLINTLOG_TRACE( facility, level, ... )                                                     \
   do {                                                                                            \
      if ( ( facility ).hears( level ) ) [[unlikely]] {                                            \
         ( facility ).write( level, ::Flintlog::joined( __VA_ARGS__ ) );                           \
      }                                                                                            \
   } while ( false )
