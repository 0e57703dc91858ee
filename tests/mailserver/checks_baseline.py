"""The suite's own ground: in these namespaces qmail queues, delivers
locally through deliverquota, bounces with bouncesaying, keeps remote mail
on the machine, and the suite reads its compiled table. Set up by hand, with
no sorvane command, so that a failure here is the harness's, not the
program's."""
import os

from checks_deliveries import expect, expect_local, landed
from mailserver import MAILNAMES, QMAIL, assigned_home, write
from mailserver import run as run_program

GROUP = "baseline"


def hand_made_domain(server):
    server.reset()
    uid, gid = server.popuser.pw_uid, server.popuser.pw_gid
    home = MAILNAMES + "/hand.test/box"
    os.makedirs(home + "/Maildir")
    server._maildir(home + "/Maildir", uid, gid)
    for path in (MAILNAMES + "/hand.test", home):
        os.chown(path, uid, gid)
        os.chmod(path, 0o700)
    write(home + "/.qmail", "| /usr/bin/deliverquota ./Maildir\n", 0o600, (uid, gid))
    write(MAILNAMES + "/hand.test/.qmail-default", "|bouncesaying Gone\\ away.\n", 0o600, (uid, gid))
    write(QMAIL + "/users/assign", "=hand.test-box:popuser:%d:%d:%s:::\n+hand.test-:popuser:%d:%d:%s/hand.test:-::\n.\n"
          % (uid, gid, home, uid, gid, MAILNAMES))
    write(QMAIL + "/control/virtualdomains", "hand.test:hand.test\n")
    write(QMAIL + "/control/rcpthosts", "hand.test\n")
    run_program([QMAIL + "/bin/qmail-newu"])
    os.kill(int(open("/run/mailserver/qmail-send.pid").read()), 1)
    expect(assigned_home("hand.test-box") == home, "users/cdb: %r" % assigned_home("hand.test-box"))
    delivery = server.deliver("box@hand.test")
    expect_local(delivery, "success", "box@hand.test")
    landed(server, "hand.test", "box", delivery.sender)
    delivery = server.deliver("nobody@hand.test")
    expect_local(delivery, "failure", "nobody@hand.test")
    bounce = server.bounce_of(delivery.sender)
    expect("<nobody@hand.test>:\nGone away.\n" in bounce, "bounce:\n" + bounce)
    delivery = server.deliver("someone@elsewhere.test")
    expect(delivery.where == "remote" and delivery.result in ("deferral", "failure"),
           "remote delivery did not fail here: %r" % delivery)
    return "local, bounce and remote attempts as expected (remote: %s)" % delivery.result


def run(server, results, options):  # noqa: F811 (the group's entry point)
    results.check(GROUP, "qmail delivers, bounces and keeps remote mail here", hand_made_domain, server)
