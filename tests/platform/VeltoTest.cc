#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "platform/Velto/Assert.h"
#include "platform/Velto/Node.h"

namespace {

/** Reports its life into a journal. */
class Witness : public Velto::Node {
 public:
   explicit Witness( std::vector< std::string > & journal ) : journal_( journal ) {
      hasNotificationActiveIs( true );
   }
   ~Witness() override { journal_.push_back( "destroyed" ); }

   void kivDoZombieReactors() override {
      journal_.push_back( hasNotificationActive() ? "dying, active" : "dying, inactive" );
      if ( countsItself_ ) {
         Velto::Ptr< Witness > self( this );
         Velto::Ptr< Witness > other = self;
         journal_.push_back( "counted itself" );
      }
      Velto::Node::kivDoZombieReactors();
      journal_.push_back( zombie() ? "zombie" : "alive" );
   }
   void countsItselfIs( bool v ) { countsItself_ = v; }

 private:
   std::vector< std::string > & journal_;
   bool countsItself_ = false;
};

/** The complete object, whose part of the death must come first. */
class CompleteWitness : public Witness {
 public:
   explicit CompleteWitness( std::vector< std::string > & journal )
       : Witness( journal ), mine_( journal ) {}
   ~CompleteWitness() override { mine_.push_back( "complete part destroyed" ); }
   void kivDoZombieReactors() override {
      mine_.push_back( "complete part dying" );
      Witness::kivDoZombieReactors();
   }

 private:
   std::vector< std::string > & mine_;
};

using Journal = std::vector< std::string >;

TEST( Ptr, counts_every_holder_and_no_move ) {
   Journal journal;
   Velto::Ptr< Witness > a = Velto::make< Witness >( journal );
   EXPECT_EQ( a->useCount(), 1u );
   Velto::Ptr< Velto::Node > base = a;
   EXPECT_EQ( a->useCount(), 2u );
   Velto::Ptr< Velto::Node > moved = std::move( base );
   EXPECT_EQ( base, nullptr );
   EXPECT_EQ( a->useCount(), 2u );
   moved = moved;
   EXPECT_EQ( a->useCount(), 2u );
   moved = nullptr;
   EXPECT_EQ( a->useCount(), 1u );
   EXPECT_TRUE( journal.empty() );
}

TEST( Ptr, released_count_belongs_to_the_caller ) {
   Journal journal;
   Witness * raw = Velto::make< Witness >( journal ).release();
   EXPECT_EQ( raw->useCount(), 1u );
   EXPECT_TRUE( journal.empty() );
   raw->kivUnref();
   EXPECT_EQ( journal.back(), "destroyed" );
}

TEST( Ptr, counts_are_the_same_once_there_are_several_threads ) {
   Journal journal;
   Velto::severalThreads = true;
   auto a = Velto::make< Witness >( journal );
   auto b = a;
   EXPECT_EQ( a->useCount(), 2u );
   a = nullptr;
   EXPECT_TRUE( journal.empty() );
   b = nullptr;
   Velto::severalThreads = false;
   EXPECT_EQ( journal, ( Journal{ "dying, inactive", "zombie", "destroyed" } ) );
}

TEST( Node, dies_as_a_complete_object_before_it_is_destroyed ) {
   Journal journal;
   Velto::make< CompleteWitness >( journal );
   EXPECT_EQ( journal, ( Journal{ "complete part dying", "dying, inactive", "zombie",
                                  "complete part destroyed", "destroyed" } ) );
}

TEST( Node, that_counts_itself_while_dying_is_deleted_once ) {
   Journal journal;
   Velto::make< Witness >( journal )->countsItselfIs( true );
   EXPECT_EQ( journal, ( Journal{ "dying, inactive", "counted itself", "zombie", "destroyed" } ) );
}

TEST( Node, hears_only_while_active_and_no_zombie ) {
   Journal journal;
   auto node = Velto::make< Witness >( journal );
   EXPECT_TRUE( node->kivHears() );
   node->hasNotificationActiveIs( false );
   EXPECT_FALSE( node->kivHears() );
   node->hasNotificationActiveIs( true );
   node->kivDoZombieReactors();
   EXPECT_FALSE( node->kivHears() );
   EXPECT_TRUE( node->hasNotificationActive() );
}

/** The slot of the virtual table that a pointer to a virtual member function names. */
template< class Member >
std::ptrdiff_t
slotOf( Member member ) {
   std::ptrdiff_t word;
   static_assert( sizeof( member ) >= sizeof( word ) );
   std::memcpy( &word, &member, sizeof( word ) );
   return ( word - 1 ) / std::ptrdiff_t( sizeof( void * ) );
}

TEST( Node, virtual_slots_are_what_compiled_agents_expect ) {
   // Slots 0 and 1 are the two entries of the destructor.
   EXPECT_EQ( slotOf( &Velto::Node::typeData ), 2 );
   EXPECT_EQ( slotOf( &Velto::Node::kivDoZombieReactors ), 3 );
}

TEST( AssertDeathTest, prints_module_function_and_the_expression_as_written ) {
   int held = 1;
   EXPECT_DEATH( VELTO_ASSERT( held == 2 ),
                 "^VeltoTest:[0-9]+: .*TestBody.*: Assertion 'held == 2' failed\\.\n$" );
   VELTO_ASSERT( std::vector< int >{ 1, 2 }.size() == 2 ); // a comma is part of the expression
}

TEST( RangeError, carries_its_whole_text ) {
   try {
      throw Velto::RangeError( "5000 is no VLAN id" );
   } catch ( const std::range_error & e ) {
      EXPECT_STREQ( e.what(), "5000 is no VLAN id" );
   }
}

} // namespace
