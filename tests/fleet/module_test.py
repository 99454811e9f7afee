#!/usr/bin/python3
"""The vrx.firmware.vrxfwul module without a BMC: its helpers, and whole runs
against a stand-in for the program that records how it was called.

    module_test.py SOURCE_DIR [BUILD_DIR]
"""
import json
import os
import re
import stat
import subprocess
import sys
import tempfile
import textwrap
import unittest
import zlib

SRC = sys.argv.pop(1)
BUILD = sys.argv.pop(1) if len(sys.argv) > 1 else ''
MODULE = os.path.join(SRC, 'ansible/ansible_collections/vrx/firmware/plugins/modules/vrxfwul.py')
sys.path.insert(0, os.path.dirname(MODULE))
import vrxfwul  # noqa: E402  pylint: disable=wrong-import-position

INVENTORY = textwrap.dedent('''\
    <?xml version="1.0" encoding="UTF-8" ?>
    <SVMInventory lang="en">
       <Device componentID="5814" display="BMC Firmware">
          <Application componentType="FRMW" version="%s" display="BMC Firmware" />
       </Device>
    </SVMInventory>
    ''')

# The stand-in: -xml prints the version in $STATE/version; an update writes
# $FAKE_NEW there unless $FAKE_RC is set, logs its argv and whether it got
# IPMI_PASSWORD, and prints the -fml document.
FAKE = textwrap.dedent('''\
    #!/bin/bash
    printf '%s\\n' "$*" >>"$STATE/calls"
    [ "$IPMI_PASSWORD" = "$FAKE_PW" ] && echo env-ok >>"$STATE/calls"
    case " $* " in
      *" -check "*)
        r=pass st=ok d=free
        [ -n "${FAKE_CHECK_RC:-}" ] && r=fail st=failed d='another vrxfwul run is updating this BMC'
        printf '<?xml version="1.0" encoding="UTF-8" ?>\\n<PreflightCheck result="%s" code="%s">\\n   <Check name="lock" status="%s" code="%s">%s</Check>\\n</PreflightCheck>\\n' \\
          "$r" "${FAKE_CHECK_RC:-0}" "$st" "${FAKE_CHECK_RC:-0}" "$d"
        exit "${FAKE_CHECK_RC:-0}" ;;
      *" -xml "*)
        printf '%s' "$INVENTORY" | sed "s/VERSION/$(cat "$STATE/version")/"
        exit 0 ;;
    esac
    for a in "$@"; do case "$a" in -l=*) log=${a#-l=} ;; esac; done
    echo '   Searching For Devices' >"$log"
    if [ -n "${FAKE_RC:-}" ]; then
      printf 'Get Update Status Command\\n   Response Data: 0x82\\n   Firmware Update Failed\\n   Timeout Limit Reached\\n' >>"$log"
      printf '<?xml version="1.0" encoding="UTF-8" ?>\\n<SVMExecution lang="en">\\n   <SPStatus result="false">\\n      <Message id="33" >Update Firmware Failed</Message>\\n   </SPStatus>\\n</SVMExecution>\\n'
      exit "$FAKE_RC"
    fi
    old=$(cat "$STATE/version")
    echo "$FAKE_NEW" >"$STATE/version"
    printf '<?xml version="1.0" encoding="UTF-8" ?>\\n<SVMExecution lang="en">\\n   <Device componentID="5814" display="BMC Firmware">\\n      <Application componentType="FRMW" version="%s" display="BMC Firmware">\\n         <SPStatus result="true">\\n            <Message id="0" >Update Successful.</Message>\\n         </SPStatus>\\n      </Application>\\n   </Device>\\n</SVMExecution>\\n' "$old"
    ''')


def make_header(major, minor, crc_ok=True):
    header = bytearray(512)
    header[4] = 1
    header[5] = 1
    header[8] = major
    header[9] = minor
    header[24:28] = b'AEVB'
    crc = zlib.crc32(bytes(header[4:])) & 0xffffffff
    if not crc_ok:
        crc ^= 1
    header[0:4] = crc.to_bytes(4, 'little')
    return bytes(header) + b'\0' * 1024


class Helpers(unittest.TestCase):
    def test_versions_in_the_inventory_form(self):
        self.assertEqual('1.52', vrxfwul.canonical_version('1.52'))
        self.assertEqual('1.52', vrxfwul.canonical_version('1.52.7'))
        self.assertEqual('a.05', vrxfwul.canonical_version('A.5'))
        self.assertIsNone(vrxfwul.canonical_version('1'))
        self.assertIsNone(vrxfwul.canonical_version('1.52; rm'))

    def test_image_header_version(self):
        with tempfile.TemporaryDirectory() as tmp:
            good = os.path.join(tmp, 'good.k9')
            with open(good, 'wb') as handle:
                handle.write(make_header(1, 0x52))
            self.assertEqual(('1.52', None), vrxfwul.image_version(good))
            bad = os.path.join(tmp, 'bad.k9')
            with open(bad, 'wb') as handle:
                handle.write(make_header(1, 0x52, crc_ok=False))
            self.assertIn('CRC', vrxfwul.image_version(bad)[1])
            short = os.path.join(tmp, 'short.k9')
            with open(short, 'wb') as handle:
                handle.write(b'x' * 100)
            self.assertIn('shorter', vrxfwul.image_version(short)[1])

    @unittest.skipUnless(BUILD and os.access(os.path.join(BUILD, 'sim/vrx-mkimage'), os.X_OK),
                         'vrx-mkimage not built')
    def test_image_made_by_the_simulator_tools(self):
        with tempfile.TemporaryDirectory() as tmp:
            path = os.path.join(tmp, 'fw.k9')
            subprocess.run([os.path.join(BUILD, 'sim/vrx-mkimage'), '-o', path, '-v', '2.07.3'],
                           check=True)
            self.assertEqual(('2.07', None), vrxfwul.image_version(path))

    def test_documents(self):
        self.assertEqual('1.52', vrxfwul.parse_inventory(INVENTORY % '1.52'))
        self.assertIsNone(vrxfwul.parse_inventory('<?xml version="1.0" ?>\n<SVMInventory lang="en"/>\n'))
        self.assertIsNone(vrxfwul.parse_inventory('garbage'))
        failed = vrxfwul.parse_result('<SVMExecution lang="en"><SPStatus result="false">'
                                      '<Message id="33" >Update Firmware Failed</Message>'
                                      '</SPStatus></SVMExecution>')
        self.assertEqual({'result': False, 'version': None, 'message': 'Update Firmware Failed'}, failed)

    def test_failure_words_from_the_log(self):
        log = ('Get Update Status Command\n   Response Info:\n   Response Data: 0x00\n\n'
               'Get Update Status Command\n   Response Data: 0x84\n'
               'Get Device ID Command\n   Response Data: 0x20 0x01\n'
               '   Firmware Update Failed\n')
        self.assertEqual(0x84, vrxfwul.last_task_status(log))
        self.assertEqual(['BMC update status 0x84 Checksum Error'], vrxfwul.failure_detail(log, ''))
        self.assertEqual(['Unable to send RAW command (x)', 'Timeout Limit Reached'],
                         vrxfwul.failure_detail('   Remote Update Enable Failed\n   Timeout Limit Reached\n',
                                                '   Unable to send RAW command (x)\n'))

    def test_return_codes_match_the_program(self):
        """Every code with a message in the program has the same name and text here."""
        with open(os.path.join(SRC, 'src/types.h')) as handle:
            values = {m.group(1): int(m.group(2))
                      for m in re.finditer(r'\b(RC_[A-Z0-9_]+) = (\d+)', handle.read())}
        with open(os.path.join(SRC, 'src/common/return_code.cc')) as handle:
            text = handle.read()
        program = {}
        for m in re.finditer(r'\{(RC_[A-Z0-9_]+),\s*((?:"(?:[^"\\]|\\.)*"\s*)+)\}', text):
            message = ''.join(re.findall(r'"((?:[^"\\]|\\.)*)"', m.group(2)))
            message = message.replace('\\n', '\n').strip()
            program[values[m.group(1)]] = (m.group(1), message)
        self.assertGreater(len(program), 50)
        for code, (name, message) in program.items():
            if code >= 256 or (not message and name.startswith('RC_RESERVED')):
                continue
            self.assertEqual((name, message), vrxfwul.RETURN_CODES.get(code), 'code %d' % code)
        for code in vrxfwul.RETURN_CODES:
            self.assertIn(code, program)


class WholeRuns(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.TemporaryDirectory()
        self.state = self.tmp.name
        self.fake = os.path.join(self.state, 'vrxfwul')
        with open(self.fake, 'w') as handle:
            handle.write(FAKE)
        os.chmod(self.fake, stat.S_IRWXU)
        with open(os.path.join(self.state, 'version'), 'w') as handle:
            handle.write('1.50\n')
        self.env = dict(os.environ, STATE=self.state, FAKE_PW='pw-9x7', FAKE_NEW='1.52',
                        INVENTORY=INVENTORY.replace('%s', 'VERSION'))
        self.env.pop('IPMI_PASSWORD', None)

    def tearDown(self):
        self.tmp.cleanup()

    def run_module(self, check_mode=False, env=None, **args):
        params = dict(bmc_host='127.0.0.9', user='admin', password='pw-9x7',
                      uri='http://127.0.0.1/fw.k9', executable=self.fake, reset_timeout=10)
        params.update(args)
        params = {k: v for k, v in params.items() if v is not None}
        params['_ansible_check_mode'] = check_mode
        path = os.path.join(self.state, 'args.json')
        with open(path, 'w') as handle:
            json.dump({'ANSIBLE_MODULE_ARGS': params}, handle)
        proc = subprocess.run([sys.executable, MODULE, path], env=env or self.env,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120, check=False)
        result = json.loads(proc.stdout.decode())
        with open(os.path.join(self.state, 'calls')) as handle:
            calls = handle.read()
        return result, calls

    def test_update_then_nothing_to_do(self):
        result, calls = self.run_module(expected_version='1.52', delay=0)
        self.assertTrue(result['changed'], result)
        self.assertEqual(('1.50', '1.52', 0, 'RC_SUCCESS'),
                         (result['version_before'], result['version_after'], result['rc'], result['rc_name']))
        self.assertIn('-fml -e=0 -uri=http://127.0.0.1/fw.k9 -H=127.0.0.9 -U=admin -L=lan -D=0 -l=', calls)
        self.assertNotIn('pw-9x7', calls + json.dumps(result))
        self.assertNotIn('-P', calls.split())
        self.assertEqual(calls.count('\n') // 2, calls.count('env-ok'), 'every run got IPMI_PASSWORD')
        result, calls2 = self.run_module(expected_version='1.52')
        self.assertFalse(result['changed'], result)
        self.assertEqual(calls2[len(calls):].count('-fml'), 0, 'no update command the second time')

    def test_check_mode_runs_only_the_inventory_and_the_check(self):
        result, calls = self.run_module(check_mode=True, expected_version='1.52')
        self.assertTrue(result['changed'])
        self.assertIn('would update 127.0.0.9 from 1.50 to 1.52', result['msg'])
        self.assertNotIn('-fml', calls)
        self.assertIn('-check -xml -e=0 -uri=http://127.0.0.1/fw.k9 -H=127.0.0.9 -U=admin -L=lan', calls)
        self.assertEqual('lock', result['preflight'][0]['name'])
        with open(os.path.join(self.state, 'version')) as handle:
            self.assertEqual('1.50', handle.read().strip())

    def test_check_mode_fails_when_the_check_fails(self):
        env = dict(self.env, FAKE_CHECK_RC='13')
        result, calls = self.run_module(check_mode=True, env=env, expected_version='1.52')
        self.assertTrue(result.get('failed'), result)
        self.assertIn('would not go ahead: lock: another vrxfwul run is updating this BMC', result['msg'])
        self.assertEqual(13, result['rc'])
        self.assertNotIn('-fml', calls)

    def test_password_from_the_environment(self):
        env = dict(self.env, IPMI_PASSWORD='pw-9x7')
        result, calls = self.run_module(env=env, password=None, expected_version='1.50')
        self.assertFalse(result['changed'], result)
        self.assertIn('env-ok', calls)

    def test_no_password_at_all(self):
        result = self.run_module_without_calls(password=None)
        self.assertTrue(result['failed'])
        self.assertIn('IPMI_PASSWORD', result['msg'])

    def run_module_without_calls(self, **args):
        open(os.path.join(self.state, 'calls'), 'w').close()
        return self.run_module(**args)[0]

    def test_failure_carries_the_program_message(self):
        env = dict(self.env, FAKE_RC='20')
        result, _ = self.run_module(env=env, image=None, expected_version='1.52')
        self.assertTrue(result['failed'])
        self.assertEqual((20, 'RC_FW_UPDATE_FAILED', 'Firmware Update Failed'),
                         (result['rc'], result['rc_name'], result['rc_message']))
        self.assertEqual('Firmware Update Failed; BMC update status 0x82 Path Not Found; '
                         'Timeout Limit Reached (vrxfwul exit status 20)', result['msg'])
        self.assertFalse(result['result_document']['result'])
        self.assertIn('Searching For Devices', result['log'])

    def test_wrong_version_after_the_update_fails(self):
        env = dict(self.env, FAKE_NEW='1.51')
        result, _ = self.run_module(env=env, expected_version='1.52', reset_timeout=5)
        self.assertTrue(result['failed'])
        self.assertIn('not 1.52', result['msg'])

    def test_expected_version_needs_entity_0(self):
        result = self.run_module_without_calls(expected_version='1.52', entity=4)
        self.assertTrue(result['failed'])
        self.assertIn('entity 0', result['msg'])


if __name__ == '__main__':
    unittest.main(verbosity=2)
