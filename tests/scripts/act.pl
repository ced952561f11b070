# Tells how it was started.
use Cwd;
print "script: $0\narguments: ", join('|', @ARGV), "\ndirectory: ", getcwd(), "\nuser: $< $>\ngroups: $( $)\n";
print 'input: ', defined(<STDIN>) ? 'some' : 'none', "\nenvironment: $ENV{LARKSPUR_TEST}\n";
opendir my $directory, '/proc/self/fd'; # the descriptor behind the standard streams
print 'descriptors: ', join(' ', sort grep { /\d/ } readdir $directory), "\n";
print STDERR "message\n";
exit 9;
