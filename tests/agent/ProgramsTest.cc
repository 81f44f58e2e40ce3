// qon-agent and qonctl as a user runs them: output, exit codes, clean ends.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "platform/Velto/Types.h"

namespace Tests {

namespace {

using Velto::String;

String
program( const String & name ) {
   const char * folder = std::getenv( "QON_BIN" );
   return String( folder ? folder : "build/release/bin" ) + "/" + name;
}

struct Result {
   int code;
   String output; // both streams
};

Result
sh( const String & command ) {
   Result result = { -1, "" };
   FILE * pipe = popen( ( "( " + command + " ) 2>&1 < /dev/null" ).c_str(), "r" );
   std::array< char, 4096 > piece;
   while ( std::size_t n = fread( piece.data(), 1, piece.size(), pipe ) ) {
      result.output.append( piece.data(), n );
   }
   int status = pclose( pipe );
   result.code = WIFEXITED( status ) ? WEXITSTATUS( status ) : -1;
   return result;
}

/** An agent that runs in the background until the test ends it. */
class RunningAgent {
 public:
   explicit RunningAgent( const std::vector< String > & options ) {
      std::vector< String > words = { program( "qon-agent" ), "--socket", socket };
      words.insert( words.end(), options.begin(), options.end() );
      pid = fork();
      if ( pid == 0 ) {
         std::vector< char * > argv;
         for ( auto & word : words ) {
            argv.push_back( word.data() );
         }
         argv.push_back( nullptr );
         [[maybe_unused]] auto out = freopen( "/dev/null", "w", stderr );
         execv( argv[0], argv.data() );
         _exit( 127 );
      }
   }
   ~RunningAgent() {
      if ( pid > 0 ) {
         end( SIGKILL );
         unlink( socket.c_str() );
      }
   }
   Result ctl( const String & words ) const {
      return sh( program( "qonctl" ) + " --wait 20 --socket " + socket + " " + words );
   }
   /** The exit code after the signal. */
   int end( int signal ) {
      int status = 0;
      kill( pid, signal );
      waitpid( pid, &status, 0 );
      pid = 0;
      return WIFEXITED( status ) ? WEXITSTATUS( status ) : -1;
   }

   const String socket = "/tmp/qon-programs." + std::to_string( getpid() );
   pid_t pid;
};

TEST( Programs, AnAgentOnTheExampleAnswersAndEndsCleanly ) {
   RunningAgent agent( { "--config", "examples/leaf.json" } );
   Result table = agent.ctl( "show port-channel PortChannel21" );
   EXPECT_EQ( table.code, 0 );
   EXPECT_EQ( table.output, "Port-channel   State  Members                                         "
                            "Programmed                                      Shared\n"
                            "-------------  -----  ----------------------------------------------  "
                            "----------------------------------------------  ------\n"
                            "PortChannel21  up     Ethernet40, Ethernet41, Ethernet42, Ethernet43  "
                            "Ethernet40, Ethernet41, Ethernet42, Ethernet43\n" );
   // Everything, as it would be read again.
   Result everything = agent.ctl( "dump" );
   EXPECT_EQ( everything.code, 0 );
   EXPECT_NE( everything.output.find( "\"bridging/vlan/config/vlanConfig[10]\": null,\n" ),
              String::npos );
   EXPECT_EQ( everything.output.substr( everything.output.size() - 3 ), "\n}\n" );
   Result value = agent.ctl( "get 'acsd/portToLag[Ethernet48]'" );
   EXPECT_EQ( value.output, "Port-Channel101\n" );
   EXPECT_EQ( agent.ctl( "get acsd/nothing" ).code, 1 );
   EXPECT_EQ( agent.ctl( "verify" ).output, "no findings\n" );
   EXPECT_EQ( agent.ctl( "set 'acsd/portToLag[Ethernet30]' Port-Channel101" ).code, 0 );
   Result damaged = agent.ctl( "verify" );
   EXPECT_EQ( damaged.code, 1 );
   EXPECT_NE( damaged.output.find( "Ethernet30" ), String::npos ) << damaged.output;
   // The socket is taken; the agent that holds it is not disturbed.
   Result second = sh( program( "qon-agent" ) + " --socket " + agent.socket );
   EXPECT_EQ( second.code, 2 );
   EXPECT_EQ( second.output,
              "qon-agent: error: " + agent.socket + ": busy: another agent serves this socket\n" );
   EXPECT_EQ( agent.ctl( "get acsd/operationalMode" ).output, "switching\n" );
   EXPECT_EQ( agent.end( SIGTERM ), 0 );
   EXPECT_NE( access( agent.socket.c_str(), F_OK ), 0 );
   Result gone = sh( program( "qonctl" ) + " --socket " + agent.socket + " show log" );
   EXPECT_EQ( gone.code, 2 );
   EXPECT_EQ( gone.output, "qonctl: " + agent.socket +
                                 ": no agent serves this socket: No such file or directory\n" );
}

TEST( Programs, AForwardingTableIsWrittenFollowedAndOutlivesItsWriter ) {
   const String place = "/tmp/qon-fib." + std::to_string( getpid() ), file = place + ".routes";
   std::ofstream( file ) << "0 10.0.0.0/8 192.0.2.1@Ethernet1 192.0.2.2@Ethernet2\n";
   const String fib = program( "qon-fib" ) + " --fib " + place + " ";
   RunningAgent agent( { "--fib", place } );
   const Result writer =
         sh( "timeout -s INT 2 " + fib + file + " & sleep 1; " + program( "qonctl" ) +
             " --wait 20 --socket " + agent.socket + " show route 10.1.2.3 --json; wait" );
   EXPECT_EQ( writer.output,
              "qon-fib: ready, serving " + place +
                    ": 1 routes, 1 classes\n[\n  {\"vrf\":0,\"prefix\":\"10.0.0.0/8\","
                    "\"fec\":4294967296,\"nextHops\":[\"192.0.2.1 Ethernet1\","
                    "\"192.0.2.2 Ethernet2\"],\"adjacency\":1,\"state\":\"programmed\","
                    "\"why\":\"\"}\n]\n" );
   EXPECT_EQ( agent.ctl( "show adjacency 1" ).code, 0 );
   const Result refused = sh( "echo '0 ::/0 nowhere' | " + fib + "-" );
   EXPECT_EQ( refused.code, 2 );
   EXPECT_EQ( refused.output, "qon-fib: error: -:1: expected ADDRESS@INTERFACE, @INTERFACE, drop, "
                              "local, 'fec NUMBER' or -, found 'nowhere'\n" );
   EXPECT_EQ( agent.end( SIGTERM ), 0 );
   sh( "rm -f " + place + "*" );
}

TEST( Programs, AFrameIsFollowedByItsFieldsOrFromACapture ) {
   RunningAgent agent( { "--config", "examples/leaf.json" } );
   const Result typed =
         agent.ctl( "frame Ethernet40 dmac=01:80:c2:00:00:00 smac=00:00:00:00:00:01" );
   EXPECT_EQ( typed.code, 0 ) << typed.output;
   EXPECT_NE( typed.output.find( "arrival" ), String::npos ) << typed.output;
   // Two frames, the second of which is too short.
   const String file = "/tmp/qon-programs-capture." + std::to_string( getpid() );
   auto record = []( char size ) {
      return String( 8, '\0' ) + size + String( 3, '\0' ) + size + String( 3, '\0' ) +
             String( std::size_t( size ), '\1' );
   };
   auto append = [&]( const String & text ) { std::ofstream( file, std::ios::app ) << text; };
   append( String( "\xd4\xc3\xb2\xa1\2\0\4\0\0\0\0\0\0\0\0\0\0\0\4\0\1\0\0\0", 24 ) +
           record( 14 ) );
   const Result captured = agent.ctl( "frame Ethernet40 --capture " + file );
   EXPECT_EQ( captured.code, 0 ) << captured.output;
   EXPECT_EQ( captured.output.find( "Frame  Stage" ), 0u ) << captured.output;
   append( record( 1 ) );
   const Result wrong = agent.ctl( "frame Ethernet40 --json --capture " + file );
   EXPECT_EQ( wrong.code, 1 );
   EXPECT_NE( wrong.output.find( "frame 2: frame: ends in the Ethernet header" ), String::npos )
         << wrong.output;
   EXPECT_EQ( agent.ctl( "frame Ethernet40 vlan=10 --capture " + file ).code, 2 );
   EXPECT_EQ( agent.ctl( "frame Nowhere0 vlan=10" ).code, 1 );
   unlink( file.c_str() );
   const Result words = agent.ctl( "complete -- frame Ethernet40 i" );
   EXPECT_EQ( words.output, "icmp=\ninner=\n" );
}

TEST( Programs, AWatchPrintsChangesUntilTheAgentEnds ) {
   RunningAgent agent( { "--config", "examples/leaf.json" } );
   String path = "'interface/status/eth/phy/intfStatus[Ethernet5]/linkUp'";
   String ctl = program( "qonctl" ) + " --wait 20 --socket " + agent.socket;
   // The watcher is there once the first of repeated changes shows in its output.
   String out = agent.socket + ".watch";
   Result watched = sh( ctl + " watch " + path + " > " + out + " & i=0; while [ ! -s " + out +
                        " ] && [ $i -lt 500 ]; do " + ctl + " set " + path + " False; " + ctl +
                        " set " + path + " True; i=$(( i + 1 )); done; kill -INT " +
                        std::to_string( agent.pid ) + "; wait $!; echo rc=$?; cat " + out );
   EXPECT_NE( watched.output.find( "/linkUp = " ), String::npos ) << watched.output;
   EXPECT_NE( watched.output.find( "rc=2\n" ), String::npos ) << watched.output;
   EXPECT_EQ( agent.end( SIGTERM ), 0 ); // it had ended already, as cleanly
   unlink( out.c_str() );
}

TEST( Programs, VirtualTimeMovesOnRequestOnly ) {
   RunningAgent agent( { "--virtual-time" } );
   EXPECT_EQ( agent.ctl( "run 12.5" ).output, "uptime 12.500 s\n" );
   EXPECT_EQ( agent.ctl( "run 2" ).output, "uptime 14.500 s\n" );
   EXPECT_EQ( agent.ctl( "run -1" ).code, 1 );
}

TEST( Programs, BadInputIsOneLineAndExitCode2 ) {
   String bad = "/tmp/qon-bad." + std::to_string( getpid() );
   auto check = [&]( const String & option, const String & content ) {
      std::ofstream( bad ) << content;
      return sh( program( "qon-agent" ) + " --once " + option + " " + bad );
   };
   struct {
      const char * option;
      const char * content;
      const char * error; // behind the file's name
   } const cases[] = {
         { "--config", "", ": is empty, an object of tables was expected" },
         { "--config", "{\"PORT\": {\n  \"Ethernet0\"",
           ":2:13: not valid JSON: it ends too early" },
         { "--state", "{\"nowhere/x\": 1}", ": nowhere/x: lies in no mount" },
         { "--events", "{\"event\": 7}", ":1: field 'event': expected a text, found 7" },
   };
   for ( auto & c : cases ) {
      Result result = check( c.option, c.content );
      EXPECT_EQ( result.code, 2 ) << result.output;
      EXPECT_EQ( result.output, "qon-agent: error: " + bad + c.error + "\n" );
   }
   // What can be used is used, and what is skipped is said.
   Result some =
         check( "--config", R"({"PORT": {"Ethernet0": {}, "port": {}}, "NEW": {"a": {}}})" );
   EXPECT_EQ( some.code, 0 );
   EXPECT_EQ( some.output, "qon-agent: warning: " + bad +
                                 ": PORT|port: expected an interface name such as Ethernet0 or "
                                 "PortChannel12, found 'port'; row skipped\n"
                                 "qon-agent: note: " +
                                 bad + ": NEW: table not known, 1 row skipped\n" +
                                 "qon-agent: " + bad + ": 1 rows used, 1 warnings\n" );
   unlink( bad.c_str() );
   EXPECT_EQ( sh( program( "qon-agent" ) + " --once --config /" ).output,
              "qon-agent: error: /: is a directory, a file was expected\n" );
}

TEST( Programs, WhoAsksIsToldAndGivenUpInTime ) {
   RunningAgent agent( { "--config", "examples/leaf.json", "--virtual-time" } );
   const String path = "'interface/status/eth/phy/intfStatus[Ethernet5]/linkUp'";
   Result met = agent.ctl( "wait-until " + path + " True" );
   EXPECT_EQ( met.code, 0 ) << met.output;
   Result missed = agent.ctl( "wait-until " + path + " False --within 0.2" );
   EXPECT_EQ( missed.code, 1 );
   EXPECT_EQ( missed.output,
              "qonctl: interface/status/eth/phy/intfStatus[Ethernet5]/linkUp: is True "
              "and not False after 0.2 s\n" );
   const String waits = program( "qonctl" ) + " --socket " + agent.socket + " wait-until ";
   Result later = sh( waits + path + " False & sleep 0.2; " + program( "qonctl" ) + " --socket " +
                      agent.socket + " event link port=Ethernet5 up=false; wait $!; echo rc=$?" );
   EXPECT_EQ( later.output, "rc=0\n" );
   EXPECT_EQ( agent.ctl( "wait-until 'acsd/portToLag[Ethernet30]' None" ).code, 0 );
   Result sets = agent.ctl( "set acsd/minIntfs 3 acsd/nothing 1" );
   EXPECT_EQ( sets.code, 1 );
   EXPECT_EQ( agent.ctl( "get acsd/minIntfs" ).output, "0\n" );
   EXPECT_EQ( agent.ctl( "set acsd/minIntfs 3 acsd/minIntfs 4" ).output,
              "qonctl: set: acsd/minIntfs is there twice\n" );
   EXPECT_EQ( agent.ctl( "insert 'bridging/vlan/config/vlanConfig[5000]'" ).output,
              "qonctl: bridging/vlan/config/vlanConfig[5000]: expected a VLAN from 1 to 4094\n" );
   EXPECT_EQ( sh( program( "qonctl" ) + " complete -- wa" ).output, "watch\nwait-until\n" );
   EXPECT_EQ( agent.ctl( "complete -- show mac vl" ).output, "vlan\n" );
   // One that does not answer any more.
   kill( agent.pid, SIGSTOP );
   Result silent = sh( program( "qonctl" ) + " --socket " + agent.socket +
                       " --timeout 0.2 get acsd/minIntfs" );
   kill( agent.pid, SIGCONT );
   EXPECT_EQ( silent.code, 2 );
   EXPECT_EQ( silent.output,
              "qonctl: " + agent.socket + ": the agent has not answered within 0.2 s\n" );
}

TEST( Programs, TheConfigurationIsReadAgainOnRequest ) {
   const String file = "/tmp/qon-reload." + std::to_string( getpid() );
   auto write = [&]( const String & text ) { std::ofstream( file ) << text; };
   write( R"({"PORT": {"Ethernet0": {}, "Ethernet4": {}}, "VLAN": {"Vlan10": {}}})" );
   RunningAgent agent( { "--config", file } );
   const String vlan = " 'bridging/vlan/config/vlanConfig[";
   EXPECT_EQ( agent.ctl( "get" + vlan + "10]'" ).code, 0 );
   write( R"({"PORT": {"Ethernet0": {}, "Eth)" ); // while somebody writes it
   kill( agent.pid, SIGHUP );
   EXPECT_EQ( agent.ctl( "get 'acsd/intf[Ethernet4]'" ).output, "True\n" );
   write( R"({"PORT": {"Ethernet0": {}}, "VLAN": {"Vlan20": {}}})" );
   kill( agent.pid, SIGHUP );
   EXPECT_EQ( agent.ctl( "wait-until 'acsd/intf[Ethernet4]' None --timeout 20" ).code, 0 );
   EXPECT_EQ( agent.ctl( "show vlan --json" ).output.find( "10" ), String::npos );
   EXPECT_NE( agent.ctl( "show vlan --json" ).output.find( "20" ), String::npos );
   EXPECT_EQ( agent.end( SIGTERM ), 0 );
   unlink( file.c_str() );
}

TEST( Programs, ARecordingThatCannotGoOnIsOneMessageAndTheAgentGoesOn ) {
   const String file = "/tmp/qon-recorded." + std::to_string( getpid() );
   // The configuration alone takes more.
   Result run = sh( "ulimit -f 4; " + program( "qon-agent" ) +
                    " --once --virtual-time --config examples/leaf.json --record " + file );
   EXPECT_EQ( run.code, 0 ) << run.output;
   EXPECT_NE( run.output.find( "rows used, 0 warnings" ), String::npos ) << run.output;
   const auto said = run.output.find( "warning: " + file + ": the recording ends here" );
   ASSERT_NE( said, String::npos ) << run.output;
   EXPECT_NE( run.output.find( ": File too large\n", said ), String::npos ) << run.output;
   EXPECT_EQ( run.output.find( "warning: ", said + 1 ), String::npos ) << run.output;
   Result replayed = sh( program( "qon-agent" ) + " --replay " + file );
   EXPECT_EQ( replayed.output.find( "differs" ), String::npos ) << replayed.output;
   unlink( file.c_str() );
}

TEST( Programs, AFullDiskIsOneMessageAndTheAgentGoesOn ) {
   if ( sh( "unshare -rm mount -t tmpfs none /mnt" ).code != 0 ) {
      GTEST_SKIP() << "no file system of one's own here";
   }
   const String socket = "/tmp/qon-full." + std::to_string( getpid() ), ctl = program( "qonctl" );
   Result run =
         sh( "unshare -rm sh -c 'mount -t tmpfs -o size=16k none /mnt || exit; " +
             program( "qon-agent" ) + " --socket " + socket +
             " --config examples/leaf.json --record /mnt/r & " + ctl + " --wait 20 --socket " +
             socket + " event link port=Ethernet5 up=false; for i in " + "$(seq 99); do " + ctl +
             " --socket " + socket + " get acsd/minIntfs; done | sort -u; " + ctl + " --socket " +
             socket + " show interfaces Ethernet5 --json; df /mnt | tail -1; " +
             "kill $!; wait $!; echo rc=$?'" );
   const auto said = run.output.find( "the recording ends here" );
   ASSERT_NE( said, String::npos ) << run.output;
   EXPECT_NE( run.output.find( "No space left on device", said ), String::npos ) << run.output;
   EXPECT_EQ( run.output.find( "the recording ends here", said + 1 ), String::npos ) << run.output;
   EXPECT_NE( run.output.find( R"("link":"down")" ), String::npos ) << run.output;
   EXPECT_NE( run.output.find( "rc=0" ), String::npos ) << run.output;
}

TEST( Programs, OutputThatTakesNoMoreIsAnError ) {
   RunningAgent agent( { "--config", "examples/leaf.json" } );
   for ( auto words : { "dump", "show interfaces", "get acsd/minIntfs", "watch acsd" } ) {
      Result full = agent.ctl( String( words ) + " > /dev/full" );
      EXPECT_EQ( full.code, 1 ) << words;
      EXPECT_EQ( full.output, "qonctl: standard output: No space left on device\n" ) << words;
   }
   EXPECT_EQ( agent.end( SIGTERM ), 0 );
}

TEST( Programs, WhatIsTypedComesBackEscaped ) {
   const String evil = "'E\x1b[31m\xff'";
   for ( auto words : { "qon-agent --once --config", "qon-agent --colour", "qon-agent --replay",
                        "qonctl --socket", "qonctl get x", "qon-sim --features", "qon-sim --replay",
                        "qon-sim --faults", "qon-sim --seed", "qon-conformance --only",
                        "qon-conformance --latency", "qon-conformance" } ) {
      const String name = String( words ).substr( 0, String( words ).find( ' ' ) );
      if ( access( program( name ).c_str(), X_OK ) != 0 ) {
         continue; // the simulation is not built by what these tests need
      }
      const Result said = sh( program( words ) + " " + evil +
                              ( String( words ) == "qonctl --socket" ? " show" : "" ) );
      EXPECT_EQ( said.code, 2 ) << words << said.output;
      EXPECT_EQ( said.output.find( name + ": " ), 0u ) << words << said.output;
      EXPECT_NE( said.output.find( "E\\x1b[31m\\xff" ), String::npos ) << words << said.output;
      EXPECT_EQ( said.output.find_first_of( "\x1b\xff" ), String::npos ) << words;
   }
}

TEST( Programs, OfSeveralThatStartAtOnceOneServes ) {
   const String socket = "/tmp/qon-race." + std::to_string( getpid() );
   // Left behind by one that died.
   sh( "python3 -c 'import socket; socket.socket( socket.AF_UNIX ).bind( \"" + socket + "\" )'" );
   const String said = socket + ".said";
   String command;
   for ( int i = 0; i < 6; ++i ) {
      command += program( "qon-agent" ) + " --socket " + socket + " 2>> " + said +
                 " & pids=\"$pids $!\"; ";
   }
   Result started = sh( command + "for i in $(seq 300); do [ \"$( grep -c busy " + said +
                        " )\" = 5 ] && grep -q ready " + said +
                        " && break; sleep 0.1; done; kill $pids 2> /dev/null; wait; cat " + said +
                        "; test -e " + socket + " && echo left; rm -f " + said );
   U32 ready = 0, busy = 0;
   for ( std::size_t at = 0; ( at = started.output.find( "ready", at ) ) != String::npos; ++at ) {
      ++ready;
   }
   for ( std::size_t at = 0; ( at = started.output.find( "busy", at ) ) != String::npos; ++at ) {
      ++busy;
   }
   EXPECT_EQ( ready, 1u ) << started.output;
   EXPECT_EQ( busy, 5u ) << started.output;
   EXPECT_EQ( started.output.find( "left" ), String::npos );
}

TEST( Programs, WhereTheSocketComesFromIsSaid ) {
   const String agent = program( "qon-agent" ), ctl = program( "qonctl" );
   Result ofAgent = sh( "QON_SOCKET=/nowhere/s " + agent );
   EXPECT_EQ( ofAgent.code, 2 );
   EXPECT_EQ( ofAgent.output,
              "qon-agent: error: /nowhere/s: no socket can be made here: No such file "
              "or directory (chosen by QON_SOCKET)\n" );
   Result ofCtl = sh( "QON_SOCKET=/nowhere/s " + ctl + " get acsd/minIntfs" );
   EXPECT_EQ( ofCtl.code, 2 );
   EXPECT_EQ( ofCtl.output, "qonctl: /nowhere/s: no agent serves this socket: No such file or "
                            "directory (chosen by QON_SOCKET)\n" );
   EXPECT_EQ( sh( "QON_SOCKET=/nowhere/s " + agent + " --once" ).code, 0 );
   EXPECT_EQ( sh( agent + " --socket ''" ).output,
              "qon-agent: error: --socket: a path is expected, it is empty\n" );
   EXPECT_EQ( sh( ctl + " --socket '' get acsd/minIntfs" ).output,
              "qonctl: --socket: a path is expected, it is empty\n" );
   // Without anything else it is nowhere where others can put one.
   Result home = sh( "env -u QON_SOCKET -u XDG_RUNTIME_DIR HOME=/nowhere " + ctl + " get acsd/x" );
   EXPECT_EQ( home.output.find( "/tmp" ), String::npos ) << home.output;
}

TEST( Programs, AServiceManagerIsToldWhenTheAgentIsReady ) {
   const String socket = "/tmp/qon-notify." + std::to_string( getpid() );
   Result told =
         sh( "rm -f " + socket + "; NOTIFY_SOCKET=" + socket +
             " python3 -c \"import socket, subprocess\n"
             "s = socket.socket( socket.AF_UNIX, socket.SOCK_DGRAM )\n"
             "s.bind( '" +
             socket + "' )\ns.settimeout( 20 )\nsubprocess.run( ['" + program( "qon-agent" ) +
             "', '--once'] )\nprint( s.recv( 99 ), s.recv( 99 ) )\"; rm " + socket );
   EXPECT_EQ( told.output, "b'READY=1' b'STOPPING=1'\n" );
}

TEST( Programs, ManualPagesNameEveryOptionAndCommand ) {
   struct {
      const char * name;
      const char * page;
   } const pages[] = { { "qon-agent", "docs/man/qon-agent.8" },
                       { "qonctl", "docs/man/qonctl.1" },
                       { "qon-conformance", "docs/man/qon-conformance.1" } };
   for ( auto & p : pages ) {
      // The page without what formats it, against every option, and every command, of --help.
      Result missing = sh(
            "sed 's/\\\\-/-/g' " + String( p.page ) + " > /tmp/qon-page.$$; " + program( p.name ) +
            " --help | sed '/^Examples/,$d' | grep -oE -e '--[a-z][a-z-]+|^  [a-z][a-z-]+ ' "
            "| tr -d ' ' | sort -u | while read word; do grep -q -e \"$word\" "
            "/tmp/qon-page.$$ || echo $word; done; rm /tmp/qon-page.$$" );
      EXPECT_EQ( missing.output, "" ) << p.name;
      Result version = sh( program( p.name ) + " --version" );
      EXPECT_EQ( version.code, 0 );
      EXPECT_EQ( version.output.find( String( p.name ) + " 1." ), 0u ) << version.output;
   }
}

TEST( Programs, CommandLinesThatAreWrong ) {
   for ( auto words : { "qon-agent --colour", "qon-agent --log paper", "qonctl", "qonctl dance",
                        "qonctl get", "qonctl set acsd/minIntfs", "qonctl --timeout -1 show" } ) {
      Result result = sh( program( words ) );
      EXPECT_EQ( result.code, 2 ) << words << result.output;
   }
   EXPECT_EQ(
         sh( program( "qon-agent --socket-mode 999" ) ).output,
         "qon-agent: error: --socket-mode: expected up to 0777, found '999'; --help tells more\n" );
   for ( auto name : { "qon-agent --help", "qonctl --help" } ) {
      Result help = sh( program( name ) );
      EXPECT_EQ( help.code, 0 );
      EXPECT_NE( help.output.find( "Examples:" ), String::npos );
   }
}

} // namespace

} // namespace Tests
